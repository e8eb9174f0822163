// RStreamParser on arbitrary bytes, fed in pieces whose sizes come from the input itself. Every
// split must give the same events as one whole feed.
#include "RStreamParser.h"

#include <cstdint>
#include <cstdlib>

namespace {

const QString token = QStringLiteral("0123456789abcdef");

QList<RStreamEvent> merged(const QList<RStreamEvent> &events)
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte seeds the piece sizes; the rest is the stream. The token is spliced in where
    // the input has "@", so frames and prompts are reachable.
    const uint8_t seed = data[0];
    QByteArray stream;
    for (size_t i = 1; i < size; ++i) {
        if (data[i] == '@')
            stream += token.toUtf8();
        else
            stream += char(data[i]);
    }

    RStreamParser whole(token);
    QList<RStreamEvent> expected = whole.feed(QByteArrayView(stream));
    expected += whole.flush();

    RStreamParser pieces(token);
    QList<RStreamEvent> got;
    qsizetype at = 0;
    unsigned step = seed;
    while (at < stream.size()) {
        step = step * 1103515245u + 12345u;
        const qsizetype length = qMin<qsizetype>(1 + (step >> 16) % 17, stream.size() - at);
        got += pieces.feed(QByteArrayView(stream.constData() + at, length));
        at += length;
    }
    got += pieces.flush();
    if (merged(got) != merged(expected))
        std::abort();
    return 0;
}
