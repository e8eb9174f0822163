// Kernel stream throughput: ~100 MB mixing text, frames, prompts and echoes, fed in random chunks.
#include "JSONValue.h"
#include "RStreamParser.h"

#include <QRandomGenerator>

#include <chrono>
#include <cstdio>

int main()
{
    const QString token = RStreamParser::makeToken();
    const QByteArray tokenBytes = token.toUtf8();
    const QByteArray frame =
        "\x1e" + tokenBytes +
        R"J({"type":"warning","text":"NAs introduced by coercion – Größe","call":"f(x)"})J"
        "\x1f";
    const QByteArray prompt = "\x02VESK>" + tokenBytes + "\x03";
    QByteArray stream;
    stream.reserve(105 * 1024 * 1024);
    QRandomGenerator random(7);
    while (stream.size() < 100 * 1024 * 1024) {
        switch (random.bounded(10)) {
        case 0:
            stream += frame;
            break;
        case 1:
            stream += prompt + ".vesk$exec(\"r1\", \"summary(x)\", file = NULL, line = 1L)\n";
            break;
        case 2:
            stream += "Because a Browse word is not a prompt — 你好 🎉\n";
            break;
        default:
            stream += "[1]  0.12345678  1.23456789 -2.34567890  3.45678901  4.56789012  5.67890123\n";
        }
    }
    QList<qsizetype> sizes;
    for (qsizetype at = 0; at < stream.size();) {
        const qsizetype n = qMin<qsizetype>(1 + random.bounded(64 * 1024), stream.size() - at);
        sizes.append(n);
        at += n;
    }

    RStreamParser parser(token);
    qsizetype events = 0;
    const auto start = std::chrono::steady_clock::now();
    qsizetype at = 0;
    for (qsizetype n : sizes) {
        events += parser.feed(QByteArrayView(stream.constData() + at, n)).size();
        at += n;
    }
    events += parser.flush().size();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("rstream_bytes: %.1f MB\n", stream.size() / 1e6);
    std::printf("rstream_events: %lld events\n", static_cast<long long>(events));
    std::printf("rstream_throughput: %.0f MB/s\n", stream.size() / 1e6 / seconds);

    // JSON payloads of the size kernel frames have.
    const QByteArray payload =
        R"({"type":"state","state":{"wd":"/home/u/p","env":[{"name":"df","kind":"data","class":["data.frame"],)"
        R"("type":"list","size":12345,"length":5,"dim":[1000,5],"columns":[{"name":"a","type":"double"}]}],)"
        R"("attached":[".GlobalEnv","package:stats"],"loaded":["base","utils"]}})";
    const int rounds = 200000;
    qsizetype ok = 0;
    const auto jsonStart = std::chrono::steady_clock::now();
    for (int i = 0; i < rounds; ++i)
        ok += JSONValue::parse(QByteArrayView(payload)).has_value();
    const double jsonSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - jsonStart).count();
    std::printf("json_parse_throughput: %.0f MB/s\n", double(payload.size()) * rounds / 1e6 / jsonSeconds);
    return ok == rounds ? 0 : 1;
}
