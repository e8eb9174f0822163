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
            {u"type"_qs, "object"},
            {u"properties"_qs, JSONValue{{u"text"_qs, JSONValue{{u"type"_qs, "string"}}}}}};
        server.registerTool(
            MCPTool{u"echo"_qs, u"Echo"_qs, u"Answers with the text it is given."_qs, textSchema,
                    JSONValue{{u"readOnlyHint"_qs, true}},
                    [](const JSONValue &arguments, const MCPRequestContext &context, std::stop_token,
                       MCPTool::Completion done) {
                        const QString text = arguments[u"text"].stringValue().value_or(QString());
                        if (text == u"fail")
                            return done(MCPToolResult::error(u"Asked to fail."_qs));
                        if (text == u"client")
                            return done(MCPToolResult::text(context.clientName.value_or("?")));
                        done(MCPToolResult::text(text));
                    }});
        server.registerTool(MCPTool{
            u"slow"_qs, std::nullopt, u"Waits, unless it is cancelled."_qs,
            JSONValue{{u"type"_qs, "object"},
                      {u"properties"_qs, JSONValue{{u"seconds"_qs, JSONValue{{u"type"_qs, "number"}}}}}},
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
                        done(MCPToolResult::error(u"Cancelled."_qs));
                    } else {
                        done(MCPToolResult::text(u"Waited."_qs));
                    }
                });
            }});
        server.registerTool(MCPTool{
            u"image"_qs, std::nullopt, u"Answers with a picture."_qs, JSONValue{{u"type"_qs, "object"}},
            std::nullopt,
            [](const JSONValue &, const MCPRequestContext &, std::stop_token, MCPTool::Completion done) {
                done(MCPToolResult{
                    {MCPContent::text(u"A red dot."_qs), MCPContent::image(png(), u"image/png"_qs)}, false});
            }});
    }

private:
    std::mutex m_mutex;
    std::vector<std::thread> m_workers;
};
