#include "DataColumnKind.h"

DataColumnKind::DataColumnKind(const QString &rType)
{
    if (rType == u"numeric" || rType == u"double")
        m_case = Case::Numeric;
    else if (rType == u"integer")
        m_case = Case::Integer;
    else if (rType == u"character")
        m_case = Case::Character;
    else if (rType == u"factor" || rType == u"ordered")
        m_case = Case::Factor;
    else if (rType == u"logical")
        m_case = Case::Logical;
    else if (rType == u"date" || rType == u"Date")
        m_case = Case::Date;
    else if (rType == u"datetime" || rType == u"POSIXct" || rType == u"POSIXlt" || rType == u"POSIXt")
        m_case = Case::DateTime;
    else if (rType == u"list")
        m_case = Case::List;
    else
        m_word = rType;
}

QString DataColumnKind::shortLabel() const
{
    switch (m_case) {
    case Case::Numeric:
        return QStringLiteral("num");
    case Case::Integer:
        return QStringLiteral("int");
    case Case::Character:
        return QStringLiteral("chr");
    case Case::Factor:
        return QStringLiteral("fct");
    case Case::Logical:
        return QStringLiteral("lgl");
    case Case::Date:
        return QStringLiteral("date");
    case Case::DateTime:
        return QStringLiteral("dttm");
    case Case::List:
        return QStringLiteral("list");
    case Case::Other:
        break;
    }
    if (m_word == u"complex")
        return QStringLiteral("cplx");
    if (m_word == u"difftime")
        return QStringLiteral("drtn");
    if (m_word == u"integer64")
        return QStringLiteral("i64");
    if (m_word == u"hms")
        return QStringLiteral("time");
    // Counted in characters, not UTF-16 units, so a word is never cut inside a surrogate pair.
    const QList<uint> characters = m_word.toUcs4();
    if (characters.size() < 7)
        return m_word;
    return QString::fromUcs4(reinterpret_cast<const char32_t *>(characters.constData()), 5) +
           QStringLiteral("…");
}

QString DataColumnKind::displayName() const
{
    switch (m_case) {
    case Case::Numeric:
        return QStringLiteral("Numeric");
    case Case::Integer:
        return QStringLiteral("Integer");
    case Case::Character:
        return QStringLiteral("Character");
    case Case::Factor:
        return QStringLiteral("Factor");
    case Case::Logical:
        return QStringLiteral("Logical");
    case Case::Date:
        return QStringLiteral("Date");
    case Case::DateTime:
        return QStringLiteral("Date-time");
    case Case::List:
        return QStringLiteral("List");
    case Case::Other:
        break;
    }
    return m_word;
}

bool DataColumnKind::isNumeric() const
{
    if (m_case == Case::Numeric || m_case == Case::Integer)
        return true;
    return m_case == Case::Other && (m_word == u"difftime" || m_word == u"integer64" || m_word == u"units");
}
