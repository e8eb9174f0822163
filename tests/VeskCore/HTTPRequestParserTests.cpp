// The HTTP request parser: framing, every limit with its status and message, incremental input, and
// response serialization.
#include "HTTPRequestParser.h"
#include "HTTPResponse.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

namespace {

constexpr qint64 limit = 1000;

// Everything the parser yields for `parts` fed one after the other, up to and including the first error.
struct Parsed {
    QList<HTTPRequest> requests;
    std::optional<HTTPParseError> error;
    bool continueSeen = false;
};

Parsed feed(const QList<QByteArrayView> &parts, qint64 maxBody = limit)
{
    Parsed parsed;
    HTTPRequestParser parser(maxBody);
    for (qsizetype i = 0; i < parts.size() && !parsed.error; ++i) {
        parser.append(parts[i]);
        for (;;) {
            HTTPRequestParser::Next next = parser.next();
            if (auto *r = std::get_if<HTTPRequest>(&next)) {
                parsed.requests.append(*r);
            } else if (auto *e = std::get_if<HTTPParseError>(&next)) {
                parsed.error = *e;
                break;
            } else {
                if (parser.continuePending()) {
                    parsed.continueSeen = true;
                    parser.clearContinuePending();
                }
                break;
            }
        }
    }
    return parsed;
}

// `input` in pieces of `piece` bytes (0: all at once).
Parsed parse(QByteArrayView input, qsizetype piece = 0, qint64 maxBody = limit)
{
    if (piece <= 0)
        piece = qMax<qsizetype>(1, input.size());
    QList<QByteArrayView> parts;
    for (qsizetype at = 0; at < input.size(); at += piece)
        parts.append(input.sliced(at, qMin(piece, input.size() - at)));
    return feed(parts, maxBody);
}

HTTPParseError errorOf(QByteArrayView input, qint64 maxBody = limit)
{
    const Parsed parsed = parse(input, 0, maxBody);
    EXPECT_TRUE(parsed.error.has_value()) << input.toByteArray().left(200).toStdString();
    return parsed.error.value_or(HTTPParseError{0, {}});
}

HTTPRequest onlyRequest(QByteArrayView input)
{
    const Parsed parsed = parse(input);
    EXPECT_FALSE(parsed.error.has_value()) << (parsed.error ? parsed.error->message.toStdString() : "");
    EXPECT_EQ(parsed.requests.size(), 1);
    return parsed.requests.value(0);
}

} // namespace

TEST(HTTPRequestParser, ParsesHeadAndFixedBody)
{
    const HTTPRequest r = onlyRequest("POST /mcp?x=1 HTTP/1.1\r\nHost: a\r\nX-Dup: 1\r\nx-dup:  2 \t\r\n"
                                      "Content-Length: 5\r\n\r\nhello");
    EXPECT_EQ(r.method, u"POST");
    EXPECT_EQ(r.target, u"/mcp?x=1");
    EXPECT_EQ(r.version, u"HTTP/1.1");
    EXPECT_EQ(r.header(u"host"), u"a");
    EXPECT_EQ(r.header(u"x-dup"), u"1, 2");
    EXPECT_EQ(r.body, "hello");
    EXPECT_FALSE(r.mustClose);
}

TEST(HTTPRequestParser, EveryCutPositionGivesTheSameRequests)
{
    // Two pipelined requests, one fixed and one chunked with an extension and a trailer, after
    // blank lines, with bare newlines in the first head.
    const QByteArray input = "\r\n\nPOST /a HTTP/1.1\nContent-Length: 3\nConnection: close\n\nabc"
                             "PUT /b HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n"
                             "4;ext=1\r\nwxyz\r\n2\r\n12\r\n0\r\nTrailer: t\r\n\r\n";
    const Parsed whole = parse(input);
    ASSERT_FALSE(whole.error);
    ASSERT_EQ(whole.requests.size(), 2);
    EXPECT_EQ(whole.requests[0].body, "abc");
    EXPECT_FALSE(whole.requests[0].keepAlive());
    EXPECT_EQ(whole.requests[1].body, "wxyz12");
    EXPECT_EQ(whole.requests[1].version, u"HTTP/1.0");

    for (qsizetype cut = 1; cut < input.size(); ++cut) {
        const Parsed split = feed({QByteArrayView(input).first(cut), QByteArrayView(input).sliced(cut)});
        EXPECT_FALSE(split.error) << "cut at " << cut;
        EXPECT_EQ(split.requests, whole.requests) << "cut at " << cut;
    }
    // And byte by byte, which also walks every partial chunk.
    EXPECT_EQ(parse(input, 1).requests, whole.requests);
}

TEST(HTTPRequestParser, HeadLimitIsExactly64KiB)
{
    auto headOf = [](qsizetype total) {
        QByteArray head = "GET / HTTP/1.1\r\nX-Pad: ";
        head += QByteArray(total - head.size() - 4, 'p');
        head += "\r\n\r\n";
        return head;
    };
    const QByteArray exact = headOf(0x10000);
    ASSERT_EQ(exact.size(), 65536);
    EXPECT_EQ(parse(exact).requests.size(), 1);
    EXPECT_EQ(parse(exact, 997).requests.size(), 1);

    const HTTPParseError over = errorOf(headOf(0x10001));
    EXPECT_EQ(over, (HTTPParseError{431, u"Header section too large."_qs}));
    // Without an end in sight the refusal comes as soon as the input passes the limit.
    const Parsed open = parse(QByteArray("GET / HTTP/1.1\r\nX: ") + QByteArray(0x10000, 'p'), 4096);
    EXPECT_EQ(open.error, over);
}

TEST(HTTPRequestParser, BodiesAtAndOverTheLimit)
{
    const QByteArray atLimit = "POST / HTTP/1.1\r\nContent-Length: 1000\r\n\r\n" + QByteArray(1000, 'b');
    EXPECT_EQ(parse(atLimit).requests.value(0).body.size(), 1000);

    const HTTPParseError tooLarge{413, u"Request body exceeds 1000 bytes."_qs};
    // Refused from the head alone, before any body byte.
    EXPECT_EQ(errorOf("POST / HTTP/1.1\r\nContent-Length: 1001\r\n\r\n"), tooLarge);
    EXPECT_EQ(errorOf("POST / HTTP/1.1\r\nContent-Length: 999999999999999999\r\n\r\n"), tooLarge);
    EXPECT_EQ(errorOf("POST / HTTP/1.1\r\nContent-Length: 1000000000000000000\r\n\r\n").message,
              u"Invalid Content-Length.");

    // Chunked: the sum of the chunks counts.
    const QByteArray chunked = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(
        parse(chunked + "3e8\r\n" + QByteArray(1000, 'c') + "\r\n0\r\n\r\n").requests.value(0).body.size(),
        1000);
    EXPECT_EQ(errorOf(chunked + "3e8\r\n" + QByteArray(1000, 'c') + "\r\n1\r\n"), tooLarge);
    EXPECT_EQ(errorOf(chunked + "ffffffffffffffffff\r\n").message, u"Invalid chunk size.");
}

TEST(HTTPRequestParser, ContentLengthForms)
{
    EXPECT_EQ(onlyRequest("POST / HTTP/1.1\r\nContent-Length: 3, 3\r\n\r\nabc").body, "abc");
    EXPECT_EQ(onlyRequest("POST / HTTP/1.1\r\nContent-Length: 2\r\ncontent-length: 2\r\n\r\nab").body, "ab");
    for (const char *bad : {"+3", "-3", "3, 4", "", "0x3", "3,"}) {
        EXPECT_EQ(errorOf(QByteArray("POST / HTTP/1.1\r\nContent-Length: ") + bad + "\r\n\r\nabc"),
                  (HTTPParseError{400, u"Invalid Content-Length."_qs}))
            << bad;
    }
}

TEST(HTTPRequestParser, TransferCodings)
{
    EXPECT_EQ(errorOf("POST / HTTP/1.1\r\nTransfer-Encoding: gzip, chunked\r\n\r\n"),
              (HTTPParseError{501, u"Unsupported transfer coding."_qs}));
    EXPECT_EQ(
        onlyRequest("POST / HTTP/1.1\r\nTransfer-Encoding: identity\r\nContent-Length: 3\r\n\r\nabc").body,
        "abc");
    const HTTPRequest both = onlyRequest(
        "POST / HTTP/1.1\r\nTransfer-Encoding: Chunked\r\nContent-Length: 99\r\n\r\n2\r\nab\r\n0\r\n\r\n");
    EXPECT_EQ(both.body, "ab");
    EXPECT_TRUE(both.mustClose);
    EXPECT_FALSE(both.keepAlive());
}

TEST(HTTPRequestParser, ChunkFramingErrors)
{
    const QByteArray head = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(errorOf(head + "2\r\nabX\r\n"), (HTTPParseError{400, u"Line too long."_qs}));
    EXPECT_EQ(errorOf(head + "g\r\n").message, u"Invalid chunk size.");
    EXPECT_EQ(errorOf(head + ";x\r\n").message, u"Invalid chunk size.");
    EXPECT_EQ(errorOf(head + QByteArray(4098, '0')).message, u"Line too long.");
    EXPECT_EQ(errorOf(head + "0\r\n" + QByteArray(4097, 't') + "\r\n").message, u"Line too long.");
    QByteArray trailers = head + "0\r\n";
    for (int i = 0; i < 17; ++i)
        trailers += "T: " + QByteArray(4000, 't') + "\r\n";
    EXPECT_EQ(errorOf(trailers), (HTTPParseError{431, u"Trailer section too large."_qs}));
}

TEST(HTTPRequestParser, MalformedHeads)
{
    const HTTPParseError badLine{400, u"Malformed request line."_qs};
    EXPECT_EQ(errorOf("GET  / HTTP/1.1\r\n\r\n"), badLine);
    EXPECT_EQ(errorOf("GET /\r\n\r\n"), badLine);
    EXPECT_EQ(errorOf("G(T / HTTP/1.1\r\n\r\n"), badLine);
    EXPECT_EQ(errorOf("GET / HTTP/2.0\r\n\r\n"), (HTTPParseError{505, u"Unsupported HTTP version."_qs}));
    EXPECT_EQ(errorOf("GET / FTP/1.0\r\n\r\n"), (HTTPParseError{400, u"Unsupported HTTP version."_qs}));
    EXPECT_EQ(errorOf("GET / HTTP/1.1\r\nA: 1\r\n folded\r\n\r\n").message, u"Malformed header field.");
    EXPECT_EQ(errorOf("GET / HTTP/1.1\r\nno colon\r\n\r\n").message, u"Malformed header field.");
    EXPECT_EQ(errorOf("GET / HTTP/1.1\r\n: empty\r\n\r\n").message, u"Malformed header field name.");
    EXPECT_EQ(errorOf("GET / HTTP/1.1\r\nBad Name: x\r\n\r\n").message, u"Malformed header field name.");
    // Invalid UTF-8 is repaired, not refused.
    EXPECT_EQ(onlyRequest("GET /\xff HTTP/1.1\r\nX: \xc3\r\n\r\n").target, u"/\uFFFD"_qs);
}

TEST(HTTPRequestParser, KeepAliveAndContinue)
{
    EXPECT_TRUE(onlyRequest("GET / HTTP/1.1\r\n\r\n").keepAlive());
    EXPECT_FALSE(onlyRequest("GET / HTTP/1.1\r\nConnection: Upgrade, CLOSE\r\n\r\n").keepAlive());
    EXPECT_FALSE(onlyRequest("GET / HTTP/1.0\r\n\r\n").keepAlive());
    EXPECT_TRUE(onlyRequest("GET / HTTP/1.0\r\nConnection: keep-alive\r\n\r\n").keepAlive());

    const QByteArray head = "POST / HTTP/1.1\r\nExpect: 100-Continue\r\nContent-Length: 2\r\n\r\n";
    EXPECT_TRUE(parse(head).continueSeen);
    // A body that came with the head owes no interim answer.
    EXPECT_FALSE(parse(head + "ok").continueSeen);
    EXPECT_FALSE(parse("POST / HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n").continueSeen);
    EXPECT_FALSE(parse("POST / HTTP/1.1\r\nExpect: 100-continue\r\n\r\n").continueSeen);
    EXPECT_FALSE(parse("POST / HTTP/1.1\r\nExpect: other\r\nContent-Length: 2\r\n\r\n").continueSeen);
}

TEST(HTTPRequestParser, BufferIsCompactedAndReleased)
{
    HTTPRequestParser parser(4 << 20);
    const QByteArray big = "POST / HTTP/1.1\r\nContent-Length: 2000000\r\n\r\n" + QByteArray(2000000, 'x');
    parser.append(big);
    ASSERT_TRUE(std::holds_alternative<HTTPRequest>(parser.next()));
    EXPECT_EQ(parser.unconsumedBytes(), 0);
    EXPECT_LE(parser.bufferCapacity(), 1 << 20);

    // Many small pipelined requests never let the dead prefix dominate the storage.
    const QByteArray small = "GET / HTTP/1.1\r\n\r\nGET";
    parser.append(small);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(std::holds_alternative<HTTPRequest>(parser.next()));
        ASSERT_TRUE(std::holds_alternative<HTTPRequestParser::NeedMore>(parser.next()));
        parser.append(" / HTTP/1.1\r\n\r\nGET");
        EXPECT_LE(parser.bufferCapacity(), 4096);
    }
}

TEST(HTTPResponse, Serialization)
{
    HTTPResponse response;
    response.status = 401;
    response.headers.append({u"WWW-Authenticate"_qs, u"Bearer\r\n realm\n=\"x\""_qs});
    response.body = "{}";
    EXPECT_EQ(response.serialized(true),
              "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Bearer realm=\"x\"\r\n"
              "Content-Length: 2\r\nConnection: keep-alive\r\n\r\n{}");
    // HEAD: the real length, no body.
    EXPECT_EQ(response.serialized(false, false),
              "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Bearer realm=\"x\"\r\n"
              "Content-Length: 2\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(HTTPResponse::reasonPhrase(418), "Status 418");
    EXPECT_EQ(HTTPResponse::continueLine(), "HTTP/1.1 100 Continue\r\n\r\n");
}
