#include "TextUnits.h"

#include <QString>

#include <gtest/gtest.h>

// The budget is in UTF-8 bytes whichever shortcut decides it.
TEST(TextUnits, FitsUTF8CountsEncodedBytesAtTheLimit)
{
    struct Case {
        QString text;
        qsizetype bytes;
        bool fits;
    };
    const Case cases[] = {
        {QString(4000, u'a'), 4000, true},
        {QString(4001, u'a'), 4000, false},
        {QString(1334, u'é'), 4000, true},           // 2,668 bytes, though 3 × 1,334 is over
        {QString(1333, u'€'), 4000, true},           // 3,999 bytes
        {QString(1334, u'€'), 4000, false},          // 4,002 bytes
        {QString(1000, u'€') + u"🎉"_qs, 3004, true}, // a surrogate pair is 4 bytes
        {QString(1000, u'€') + u"🎉"_qs, 3003, false},
        {QString(), 0, true},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.text.size());
        EXPECT_EQ(TextUnits::fitsUTF8(k.text, k.bytes), k.fits);
    }
}
