// A stored session file on arbitrary bytes: what reads as a session must write and read back equal.
#include "SessionState.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(data, qsizetype(size)));
    if (!value)
        return 0;
    const std::optional<SessionState> state = SessionState::fromJSON(*value);
    if (!state)
        return 0;
    const std::optional<SessionState> again = SessionState::fromJSON(state->toJSON());
    if (!again || !(*again == *state))
        std::abort();
    return 0;
}
