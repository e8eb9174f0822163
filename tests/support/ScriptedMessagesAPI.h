// A stand-in for the Messages API that a real `claude` talks to in tests: it listens on 127.0.0.1,
// answers each conversation request with the next scripted turn as server-sent events, answers
// everything else (token counts, side requests, probes) without using up a turn, and records every
// request so a test can check what the CLI sent. It serves each connection on a thread of its own.
//
// A conversation request is a POST to /v1/messages that asks for a stream and carries a `tools`
// list (empty when every tool is off); the CLI's side requests (titles, summaries) carry none.
#pragma once

#include "JSONValue.h"
#include "Result.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <map>
#include <memory>
#include <utility>

class ScriptedMessagesAPI {
public:
    struct Block {
        enum class Kind { Text, ToolUse };
        Kind kind = Kind::Text;
        QStringList chunks; // text: one text_delta each
        QString id;         // tool use
        QString name;       // tool use
        JSONValue input;    // tool use: sent as two input_json_delta halves

        static Block text(QStringList chunks) { return {Kind::Text, std::move(chunks), {}, {}, {}}; }
        static Block toolUse(QString id, QString name, JSONValue input)
        {
            return {Kind::ToolUse, {}, std::move(id), std::move(name), std::move(input)};
        }
    };

    struct Turn {
        QList<Block> blocks;
        QString stopReason = QStringLiteral("end_turn");
        // Before every delta but the first of the turn.
        std::chrono::milliseconds deltaDelay{0};
        // Keeps sending the one text chunk, deltaDelay apart, until the client goes away.
        bool endless = false;

        static Turn text(QStringList chunks, std::chrono::milliseconds deltaDelay = {});
        // Optional text, then one tool call; stops with "tool_use".
        static Turn toolUse(QString id, QString name, JSONValue input, QString leadText = {});
        static Turn endlessText(QString chunk, std::chrono::milliseconds interval);
    };

    enum class Kind { Turn, Side, CountTokens, Other };

    struct Request {
        QString method;
        QString target;                     // as sent, with the query
        std::map<QString, QString> headers; // lower-case names
        JSONValue body;                     // null when the body is not JSON
        Kind kind = Kind::Other;
        int turn = -1; // the scripted turn that answered it

        QString header(const char *name) const;
        // The text of every `text` part of the system prompt, joined by newlines.
        QString systemText() const;
        // Tool names of the request, in order.
        QStringList toolNames() const;
    };

    ScriptedMessagesAPI();
    // Stops: open streams are cut and every thread is joined.
    ~ScriptedMessagesAPI();
    ScriptedMessagesAPI(const ScriptedMessagesAPI &) = delete;
    ScriptedMessagesAPI &operator=(const ScriptedMessagesAPI &) = delete;

    // Listens on 127.0.0.1 at a free port; the port.
    Result<quint16> start();
    void stop();
    // "http://127.0.0.1:<port>", for ANTHROPIC_BASE_URL.
    QString baseURL() const;

    // Queued; each conversation request takes the next one. With none left the answer is a short
    // text, so a test that scripted too little sees it in its assertions rather than hanging.
    void addTurn(Turn turn);

    QList<Request> requests() const;
    QList<Request> turnRequests() const;
    // Streams cut short because the client went away (an interrupted turn).
    int abandonedStreams() const;

    // The environment a `claude` child needs to talk to this server and nothing else: the base URL,
    // a key, `home` as its home (no user settings or sessions of the machine), and no
    // nonessential traffic. Pairs of name and value; an empty value means unset.
    QList<std::pair<QByteArray, QByteArray>> childEnvironment(const QString &home) const;

    static constexpr const char *fallbackText = "No turn was scripted.";

private:
    struct State;
    std::shared_ptr<State> m_state;
};
