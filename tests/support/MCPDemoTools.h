// A tiny tool set for exercising the MCP server: an echo, a slow tool that honours cancellation, and
// a tool that answers with an image. Declare it before the server it is registered in, so that the
// server (and its calls) end first.
#pragma once

#include "MCPServer.h"

#include <QByteArray>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

class MCPDemoTools {
public:
    std::atomic<int> slowStarted{0};
    std::atomic<int> slowCancelled{0};

    ~MCPDemoTools()
    {
        std::vector<std::thread> workers;
        {
            std::lock_guard lock(m_mutex);
            workers.swap(m_workers);
        }
        for (std::thread &t : workers)
            t.join();
    }

    // A 1×1 PNG.
    static QByteArray png()
    {
        return QByteArray::fromBase64(
            "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8BQDwAEhQGAhKmMI"
            "QAAAABJRU5ErkJggg==");
    }

    void registerIn(MCPServer &server)
    {
        const JSONValue textSchema{
            {QStringLiteral("type"), "object"},
            {QStringLiteral("properties"),
             JSONValue{{QStringLiteral("text"), JSONValue{{QStringLiteral("type"), "string"}}}}}};
        server.registerTool(
            MCPTool{QStringLiteral("echo"), QStringLiteral("Echo"),
                    QStringLiteral("Answers with the text it is given."), textSchema,
                    JSONValue{{QStringLiteral("readOnlyHint"), true}},
                    [](const JSONValue &arguments, const MCPRequestContext &context, std::stop_token,
                       MCPTool::Completion done) {
                        const QString text = arguments[u"text"].stringValue().value_or(QString());
                        if (text == u"fail")
                            return done(MCPToolResult::error(QStringLiteral("Asked to fail.")));
                        if (text == u"client")
                            return done(MCPToolResult::text(context.clientName.value_or("?")));
                        done(MCPToolResult::text(text));
                    }});
        server.registerTool(MCPTool{
            QStringLiteral("slow"), std::nullopt, QStringLiteral("Waits, unless it is cancelled."),
            JSONValue{
                {QStringLiteral("type"), "object"},
                {QStringLiteral("properties"),
                 JSONValue{{QStringLiteral("seconds"), JSONValue{{QStringLiteral("type"), "number"}}}}}},
            std::nullopt,
            [this](const JSONValue &arguments, const MCPRequestContext &, std::stop_token cancelled,
                   MCPTool::Completion done) {
                const double seconds = arguments[u"seconds"].doubleValue().value_or(30);
                ++slowStarted;
                std::lock_guard lock(m_mutex);
                m_workers.emplace_back([this, seconds, cancelled, done] {
                    std::mutex mutex;
                    std::condition_variable_any wake;
                    std::unique_lock lock(mutex);
                    const bool stopped = wake.wait_for(
                        lock, cancelled, std::chrono::duration<double>(seconds), [] { return false; });
                    (void)stopped;
                    if (cancelled.stop_requested()) {
                        ++slowCancelled;
                        done(MCPToolResult::error(QStringLiteral("Cancelled.")));
                    } else {
                        done(MCPToolResult::text(QStringLiteral("Waited.")));
                    }
                });
            }});
        server.registerTool(MCPTool{
            QStringLiteral("image"), std::nullopt, QStringLiteral("Answers with a picture."),
            JSONValue{{QStringLiteral("type"), "object"}}, std::nullopt,
            [](const JSONValue &, const MCPRequestContext &, std::stop_token, MCPTool::Completion done) {
                done(MCPToolResult{{MCPContent::text(QStringLiteral("A red dot.")),
                                    MCPContent::image(png(), QStringLiteral("image/png"))},
                                   false});
            }});
    }

private:
    std::mutex m_mutex;
    std::vector<std::thread> m_workers;
};
