#include "RStreamParser.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

const QString token = u"0123456789abcdef0123456789abcdef"_qs;

QByteArray frame(const QByteArray &payload, const QString &withToken = token)
{
    return QByteArray("\x1e") + withToken.toUtf8() + payload + QByteArray("\x1f");
}

// The kernel's prompt markers: `>` for a ready prompt, `+` for a continuation.
QByteArray prompt(char kind)
{
    return "\x02VESK" + QByteArray(1, kind) + token.toUtf8() + "\x03";
}

QList<RStreamEvent> texts(const QString &text)
{
    return {RStreamEvent::makeText(text)};
}

// Text may come out in different pieces depending on where the feeds were split; merge adjacent
// text events so that only what the stream means is compared.
QList<RStreamEvent> normalized(const QList<RStreamEvent> &events)
{
    QList<RStreamEvent> out;
    for (const RStreamEvent &event : events) {
        if (event.kind == RStreamEvent::Kind::Text && !out.isEmpty() &&
            out.last().kind == RStreamEvent::Kind::Text)
            out.last().text += event.text;
        else if (!(event.kind == RStreamEvent::Kind::Text && event.text.isEmpty()))
            out.append(event);
    }
    return out;
}

QList<RStreamEvent> parseSplit(const QByteArray &stream, const QList<qsizetype> &cuts = {})
{
    RStreamParser parser(token);
    QList<RStreamEvent> events;
    qsizetype from = 0;
    for (qsizetype cut : cuts) {
        events += parser.feed(QByteArrayView(stream.constData() + from, cut - from));
        from = cut;
    }
    events += parser.feed(QByteArrayView(stream.constData() + from, stream.size() - from));
    events += parser.flush();
    return normalized(events);
}

// A session-like stream: prompts, echoes, hidden client lines, text with multi-byte characters,
// frames, a forged frame, browser prompts and words that start with "B".
QByteArray sampleStream()
{
    QByteArray s;
    s += "R version 4.x\n> source(\"kernel.R\")\n";
    s += frame(R"({"type":"ready","version":"4.2.2","pid":42})");
    s += prompt('>') + ".vesk$exec(\"r1\", \"cat('Grüße')\")\n";
    s += "Grüße 你好 🎉\nBecause it is\n";
    s += frame(R"({"type":"message","text":"héllo \u00e9"})");
    s += "\x1e"
         "notthetoken{\"type\":\"x\"}\x1f after\n";
    s += frame("not json");
    s += frame(R"({"type":"done","ok":true})");
    s += prompt('>') + "f()\n";
    s += "Called from: f()\nBrowse[2]> n\n";
    s += "debug at /tmp/a.R#3: x <- 1\nBrowse[12]> ";
    s += "c\n[1] 1\n";
    s += prompt('+') + "+ 1\n";
    s += "xBrowse[1]> is text\n";
    s += prompt('>');
    return s;
}

} // namespace

TEST(RStreamParser, TellsTextFramesPromptsAndEchoesApart)
{
    const QList<RStreamEvent> events = parseSplit(sampleStream());
    QList<RStreamEvent> expected = {
        RStreamEvent::makeText(u"R version 4.x\n> source(\"kernel.R\")\n"_qs),
        RStreamEvent::makeEvent(
            *JSONValue::parse(QByteArrayView(R"({"type":"ready","version":"4.2.2","pid":42})"))),
        RStreamEvent::makePrompt(RPrompt::ready()),
        RStreamEvent::makeText(u"Grüße 你好 🎉\nBecause it is\n"_qs),
        RStreamEvent::makeEvent(*JSONValue::parse(QByteArrayView(R"({"type":"message","text":"héllo é"})"))),
        RStreamEvent::makeText(u"\x1enotthetoken{\"type\":\"x\"}\x1f after\n"_qs),
        RStreamEvent::makeMalformed(u"not json"_qs),
        RStreamEvent::makeEvent(*JSONValue::parse(QByteArrayView(R"({"type":"done","ok":true})"))),
        RStreamEvent::makePrompt(RPrompt::ready()),
        RStreamEvent::makeEcho(u"f()"_qs),
        RStreamEvent::makeText(u"Called from: f()\n"_qs),
        RStreamEvent::makePrompt(RPrompt::browser(2)),
        RStreamEvent::makeEcho(u"n"_qs),
        RStreamEvent::makeText(u"debug at /tmp/a.R#3: x <- 1\n"_qs),
        RStreamEvent::makePrompt(RPrompt::browser(12)),
        RStreamEvent::makeEcho(u"c"_qs),
        RStreamEvent::makeText(u"[1] 1\n"_qs),
        RStreamEvent::makePrompt(RPrompt::continuation()),
        RStreamEvent::makeEcho(u"+ 1"_qs),
        RStreamEvent::makeText(u"xBrowse[1]> is text\n"_qs),
        RStreamEvent::makePrompt(RPrompt::ready()),
    };
    ASSERT_EQ(events.size(), expected.size());
    for (qsizetype i = 0; i < events.size(); ++i)
        EXPECT_EQ(events[i], expected[i]) << "event " << i << ": " << events[i].text.toStdString();
}

TEST(RStreamParser, SameEventsForEverySplit)
{
    const QByteArray stream = sampleStream();
    const QList<RStreamEvent> whole = parseSplit(stream);
    // Every single cut point: inside the token, inside multi-byte characters, between 0x1F and text.
    for (qsizetype cut = 1; cut < stream.size(); ++cut)
        ASSERT_EQ(parseSplit(stream, {cut}), whole) << "cut at " << cut;
    // Many random splits into several pieces, including one-byte feeds.
    QRandomGenerator random(20261122);
    for (int round = 0; round < 400; ++round) {
        QList<qsizetype> cuts;
        qsizetype at = 0;
        while (true) {
            at += 1 + random.bounded(round % 4 == 0 ? 3 : 40);
            if (at >= stream.size())
                break;
            cuts.append(at);
        }
        ASSERT_EQ(parseSplit(stream, cuts), whole) << "round " << round;
    }
}

TEST(RStreamParser, LineStartRulesForTheBrowserPrompt)
{
    // "Browse[]> " has no level: text.
    EXPECT_EQ(parseSplit("Browse[]> \n"), texts(u"Browse[]> \n"_qs));
    // A level too large for an int still is a browser prompt, at level 1.
    const QList<RStreamEvent> huge = parseSplit("Browse[99999999999999]> q\n");
    ASSERT_FALSE(huge.isEmpty());
    EXPECT_EQ(huge.first().prompt, RPrompt::browser(1));
    // A hidden client line resets the line start.
    const QList<RStreamEvent> hidden = parseSplit(prompt('>') + ".vesk$debugState()\nBrowse[3]> ");
    ASSERT_EQ(hidden.size(), 2);
    EXPECT_EQ(hidden.last().prompt, RPrompt::browser(3));
}

TEST(RStreamParser, BadBytesNeverBlockTheStream)
{
    // Invalid UTF-8 comes through as the replacement character.
    EXPECT_EQ(parseSplit("a\xff"
                         "b\xc3\n"),
              texts(u"a\uFFFDb\uFFFD\n"_qs));
    // A frame that never ends is given out raw by flush.
    RStreamParser cut(token);
    EXPECT_TRUE(cut.feed(QByteArrayView("\x1e" + token.toUtf8() + "{\"a\":1")).isEmpty());
    EXPECT_EQ(cut.flush(), texts(u"\x1e"_qs + token + u"{\"a\":1"_qs));
}

TEST(RStreamParser, EndlessLineAndEndlessFrameStayLinear)
{
    // 100 MB without a line feed, in 64 KB feeds: given out as it comes, never rescanned.
    RStreamParser parser(token);
    const QByteArray block(64 * 1024, 'x');
    qsizetype total = 0;
    for (int i = 0; i < 1600; ++i)
        for (const RStreamEvent &event : parser.feed(QByteArrayView(block)))
            total += event.text.size();
    EXPECT_EQ(total, qsizetype(1600) * block.size());

    // A frame that never ends is held only up to a bound, then let through as text.
    RStreamParser endless(token);
    endless.feed(QByteArrayView("\x1e" + token.toUtf8()));
    qsizetype out = 0;
    for (int i = 0; i < 400; ++i)
        for (const RStreamEvent &event : endless.feed(QByteArrayView(block)))
            out += event.text.size();
    EXPECT_GT(out, 0);
}

TEST(RStreamParser, TokensAreFreshLowerCaseHex)
{
    const QString made = RStreamParser::makeToken();
    EXPECT_EQ(made.size(), 32);
    EXPECT_NE(made, RStreamParser::makeToken());
    for (QChar c : made)
        EXPECT_TRUE((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f'));
}

TEST(RStreamParserDeathTest, RefusesAWeakToken)
{
    EXPECT_DEATH(RStreamParser(u"short"_qs), "token");
    EXPECT_DEATH(RStreamParser(u"0123456789abcdef-"_qs), "token");
}
