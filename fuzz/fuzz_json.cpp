// JSONValue::parse on arbitrary bytes; whatever parses must serialize and read back equal.
#include "JSONValue.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(data, qsizetype(size)));
    if (!value)
        return 0;
    const QByteArray text = value->serialized();
    const std::optional<JSONValue> again = JSONValue::parse(QByteArrayView(text));
    if (!again || !(*again == *value))
        std::abort();
    (void)qHash(*value);
    return 0;
}
