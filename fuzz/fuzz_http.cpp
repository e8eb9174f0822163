// Feeds arbitrary bytes to the HTTP request parser in pieces whose sizes come from the input itself,
// and serializes what comes out, as a connection would.
#include "HTTPRequestParser.h"
#include "HTTPResponse.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte picks the body limit and the piece size, so small limits get exercised too.
    const qint64 limit = (data[0] & 0x80) ? 1 << 20 : qint64(data[0]) * 3;
    const size_t piece = size_t(data[0] & 0x0f) + 1;
    HTTPRequestParser parser(limit);
    size_t offset = 1;
    while (offset < size) {
        const size_t n = std::min(piece, size - offset);
        parser.append(QByteArrayView(reinterpret_cast<const char *>(data + offset), qsizetype(n)));
        offset += n;
        for (;;) {
            HTTPRequestParser::Next next = parser.next();
            if (auto *request = std::get_if<HTTPRequest>(&next)) {
                if (request->body.size() > limit)
                    __builtin_trap();
                HTTPResponse response;
                response.headers.append({request->method, request->target});
                response.body = request->body;
                (void)response.serialized(request->keepAlive(), request->method != u"HEAD");
                continue;
            }
            if (std::holds_alternative<HTTPParseError>(next))
                return 0;
            break;
        }
        if (parser.continuePending())
            parser.clearContinuePending();
    }
    return 0;
}
