// The incremental parser of the tool server's HTTP/1.1 subset, owned by one connection. It owns every
// limit: a refusal carries the status and message to answer with, and leaves the parser unusable.
#pragma once

#include "HTTPParseError.h"
#include "HTTPRequest.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>
#include <variant>

class HTTPRequestParser {
public:
    static constexpr qsizetype maxHeadBytes = 0x10000;
    static constexpr qsizetype maxLineBytes = 4096;
    static constexpr qsizetype maxTrailerBytes = 0x10000;

    // No request yet, more input is needed.
    struct NeedMore {
        bool operator==(const NeedMore &) const = default;
    };
    using Next = std::variant<NeedMore, HTTPRequest, HTTPParseError>;

    explicit HTTPRequestParser(qint64 maxBodyBytes);

    // Adds received bytes. The consumed prefix is dropped first once it is at least half the buffer.
    void append(QByteArrayView bytes);
    // The next finished request; call again until NeedMore, since requests may be pipelined.
    Next next();

    // A "100 Continue" is owed for the request in progress.
    bool continuePending() const { return m_continuePending; }
    void clearContinuePending() { m_continuePending = false; }

    qint64 maxBodyBytes() const { return m_maxBodyBytes; }
    qsizetype unconsumedBytes() const { return m_buffer.size() - m_cursor; }
    qsizetype bufferCapacity() const { return m_buffer.capacity(); }

private:
    enum class State { Head, Fixed, ChunkSize, ChunkData, ChunkDataEnd, Trailers };
    enum class LineResult { Line, NeedMore, TooLong };

    struct Head {
        QString method;
        QString target;
        QString version;
        std::map<QString, QString, std::less<>> headers;
        bool mustClose = false;
    };

    // Returns false with `error` set on a refusal; true with or without a head stored.
    bool parseHead(std::optional<HTTPParseError> &error);
    LineResult readLine(qsizetype limit, QByteArrayView &line);
    HTTPRequest finish();

    qint64 m_maxBodyBytes;
    QByteArray m_buffer;
    qsizetype m_cursor = 0;
    qsizetype m_headScanned = 0;
    State m_state = State::Head;
    qint64 m_count = 0; // remaining bytes of a fixed body or chunk; trailer bytes so far
    std::optional<Head> m_head;
    QByteArray m_body;
    bool m_continuePending = false;
};
