// Splits R's standard output into plain text, prompts, echoed lines and kernel frames. The split
// rests on a per-process random token, so user output that looks like a frame cannot forge one.
#pragma once

#include "JSONValue.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <variant>

struct RPrompt {
    enum class Kind { Browser, Ready, Continuation };
    Kind kind = Kind::Ready;
    int level = 0; // browser level; 0 for the other kinds

    static RPrompt ready() { return {Kind::Ready, 0}; }
    static RPrompt continuation() { return {Kind::Continuation, 0}; }
    static RPrompt browser(int level) { return {Kind::Browser, level}; }
    bool operator==(const RPrompt &) const = default;
};

struct RStreamEvent {
    enum class Kind { Text, Event, Prompt, Echo, Malformed };
    Kind kind = Kind::Text;
    QString text;    // Text, Echo, Malformed (the raw payload)
    JSONValue value; // Event
    RPrompt prompt;  // Prompt

    static RStreamEvent makeText(QString text) { return {Kind::Text, std::move(text), {}, {}}; }
    static RStreamEvent makeEvent(JSONValue value) { return {Kind::Event, {}, std::move(value), {}}; }
    static RStreamEvent makePrompt(RPrompt prompt) { return {Kind::Prompt, {}, {}, prompt}; }
    static RStreamEvent makeEcho(QString line) { return {Kind::Echo, std::move(line), {}, {}}; }
    static RStreamEvent makeMalformed(QString payload)
    {
        return {Kind::Malformed, std::move(payload), {}, {}};
    }
    bool operator==(const RStreamEvent &) const = default;
};

class RStreamParser {
public:
    // 32 lower-case hex characters from the secure random source.
    static QString makeToken();

    // A token shorter than 16 characters or with anything but ASCII letters and digits aborts.
    explicit RStreamParser(const QString &token);

    QList<RStreamEvent> feed(QByteArrayView bytes);
    QList<RStreamEvent> flush();

    const QString &token() const { return m_token; }
    const QString &readyPrompt() const { return m_readyPrompt; }
    const QString &continuationPrompt() const { return m_continuationPrompt; }

    // An unfinished frame or echo line longer than this is no kernel traffic: it is let through as
    // text, so a stream that never closes one cannot hold memory without bound.
    static constexpr qsizetype maxHeldCharacters = 16 * 1024 * 1024;

private:
    enum class Match { Matched, Incomplete, No };
    Match matchBrowserPrompt(qsizetype at, qsizetype &length, int &level) const;
    void drain(QList<RStreamEvent> &events);

    QString m_token;
    QString m_readyPrompt;
    QString m_continuationPrompt;
    QByteArray m_bytes;
    QString m_buffer;
    bool m_expectingEcho = false;
    bool m_atLineStart = true;
    // Where the search for the end of the held frame or echo line resumes, so held data is scanned
    // once however many feeds it takes to complete.
    qsizetype m_resumeScan = 0;
};
