#include "KernelEvent.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

#include <functional>

// Kernel frames are read leniently: what a type needs must be there, anything else takes a default.
TEST(KernelEvent, DecodesEachTypeAndRefusesFramesWithoutWhatTheyNeed)
{
    using K = KernelEvent::Kind;
    struct Case {
        const char *json;
        std::optional<K> kind;
        std::function<void(const KernelEvent &)> check = {};
    };
    const Case cases[] = {
        {R"({"type":"ready","version":"4.2.2","pid":42})", K::Ready,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.info, (RInfo{u"4.2.2"_qs, 42, {}}));
         }},
        {R"({"type":"ready","pid":"x"})", K::Ready,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.info, (RInfo{u"R"_qs, 0, {}}));
         }},
        {R"({"type":"response","id":"r1","result":[1]})", K::Response,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.id, u"r1"_qs);
             EXPECT_FALSE(e.fault);
             EXPECT_EQ(e.result, *JSONValue::parse(QByteArrayView("[1]")));
         }},
        {R"({"type":"response","id":"r1","error":{"x":1}})", K::Response,
         [](const KernelEvent &e) { EXPECT_EQ(e.fault, u"error"_qs); }},
        {R"({"type":"response","result":1})", std::nullopt},
        {R"({"type":"message","text":"hi\n"})", K::Message,
         [](const KernelEvent &e) { EXPECT_EQ(e.text, u"hi\n"_qs); }},
        {R"({"type":"message"})", std::nullopt},
        {R"({"type":"warning"})", K::Warning,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.text, QString());
             EXPECT_FALSE(e.call);
         }},
        {R"j({"type":"error","text":"bad","call":"f()","parse":true,"traceback":[{"call":"f()","line":"3"},{"x":1}]})j",
         K::Error,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.error.message, u"bad"_qs);
             EXPECT_EQ(e.error.call, u"f()"_qs);
             EXPECT_TRUE(e.error.isParseError);
             ASSERT_EQ(e.error.traceback.size(), 1) << "a frame without a call is skipped";
             EXPECT_EQ(e.error.traceback[0].line, 3);
         }},
        {R"({"type":"error"})", K::Error,
         [](const KernelEvent &e) { EXPECT_EQ(e.error.message, u"error"_qs); }},
        {R"({"type":"plot","page":2,"file":"/tmp/p.png","new":true,"info":{"w":1}})", K::Plot,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.page, 2);
             EXPECT_TRUE(e.isNew);
             EXPECT_TRUE(e.geometry.objectValue());
         }},
        {R"({"type":"plot","page":2})", std::nullopt},
        {R"({"type":"plot","file":"/tmp/p.png"})", std::nullopt},
        {R"({"type":"state","state":{"wd":"/w","env":{"name":"x"}}})", K::State,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.state.wd, u"/w"_qs);
             ASSERT_EQ(e.state.env.size(), 1) << "a lone object counts as a list of one";
         }},
        {R"({"type":"state","state":[]})", std::nullopt},
        {R"({"type":"state"})", std::nullopt},
        {R"({"type":"done","ok":false})", K::Done, [](const KernelEvent &e) { EXPECT_TRUE(e.failed); }},
        {R"({"type":"done","ok":"no"})", K::Done, [](const KernelEvent &e) { EXPECT_FALSE(e.failed); }},
        {R"({"type":"done"})", K::Done, [](const KernelEvent &e) { EXPECT_FALSE(e.failed); }},
        {R"({"type":"open_file","path":"/tmp/a b.R"})", K::OpenFile,
         [](const KernelEvent &e) { EXPECT_EQ(e.url, QUrl::fromLocalFile(u"/tmp/a b.R"_qs)); }},
        {R"({"type":"open_file","path":""})", std::nullopt},
        {R"({"type":"browse","url":"https://r-project.org/"})", K::Browse,
         [](const KernelEvent &e) { EXPECT_EQ(e.url, QUrl(u"https://r-project.org/"_qs)); }},
        {R"({"type":"viewer","url":"/tmp/index.html"})", K::Viewer,
         [](const KernelEvent &e) { EXPECT_EQ(e.url, QUrl::fromLocalFile(u"/tmp/index.html"_qs)); }},
        {R"({"type":"browse","url":"index.html"})", K::Browse,
         [](const KernelEvent &e) { EXPECT_EQ(e.url, QUrl::fromLocalFile(u"index.html"_qs)); }},
        {R"({"type":"browse"})", std::nullopt},
        {R"({"type":"input","kind":"lines"})", K::Input,
         [](const KernelEvent &e) { EXPECT_EQ(e.input.kind, RInputRequest::Kind::Lines); }},
        {R"({"type":"input","kind":"line"})", K::Input,
         [](const KernelEvent &e) { EXPECT_EQ(e.input.kind, RInputRequest::Kind::Line); }},
        {R"({"type":"input","kind":3})", K::Input,
         [](const KernelEvent &e) { EXPECT_EQ(e.input.kind, RInputRequest::Kind::Line); }},
        {R"({"type":"input_done"})", K::InputDone},
        {R"j({"type":"debug","calls":{"call":"f()"},"vars":[{"name":"a"},{"kind":"data"}]})j", K::Debug,
         [](const KernelEvent &e) {
             EXPECT_EQ(e.frames.size(), 1);
             EXPECT_EQ(e.variables.size(), 1);
         }},
        {R"({"type":"view","expr":"df"})", K::View,
         [](const KernelEvent &e) { EXPECT_EQ(e.expr, u"df"_qs); }},
        {R"({"type":"quit"})", K::Quit},
        {R"({"type":"interrupted"})", K::Interrupted},
        {R"({"type":"inputs"})", std::nullopt},
        {R"({"kind":"lines"})", std::nullopt},
        {R"({"type":3})", std::nullopt},
        {R"(["input"])", std::nullopt},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.json);
        const std::optional<JSONValue> json = JSONValue::parse(QByteArrayView(k.json));
        ASSERT_TRUE(json);
        const std::optional<KernelEvent> event = KernelEvent::decode(*json);
        ASSERT_EQ(event.has_value(), k.kind.has_value());
        if (!event)
            continue;
        EXPECT_EQ(event->kind, *k.kind);
        if (k.check)
            k.check(*event);
    }
}
