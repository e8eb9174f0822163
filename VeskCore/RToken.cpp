#include "RToken.h"

QString rTokenKindName(RTokenKind kind)
{
    switch (kind) {
    case RTokenKind::comment:
        return QStringLiteral("comment");
    case RTokenKind::roxygen:
        return QStringLiteral("roxygen");
    case RTokenKind::roxygenTag:
        return QStringLiteral("roxygenTag");
    case RTokenKind::sectionMarker:
        return QStringLiteral("sectionMarker");
    case RTokenKind::string:
        return QStringLiteral("string");
    case RTokenKind::number:
        return QStringLiteral("number");
    case RTokenKind::keyword:
        return QStringLiteral("keyword");
    case RTokenKind::constant:
        return QStringLiteral("constant");
    case RTokenKind::operator_:
        return QStringLiteral("operator");
    case RTokenKind::functionCall:
        return QStringLiteral("functionCall");
    case RTokenKind::argumentName:
        return QStringLiteral("argumentName");
    case RTokenKind::identifier:
        return QStringLiteral("identifier");
    case RTokenKind::bracket:
        return QStringLiteral("bracket");
    case RTokenKind::punctuation:
        return QStringLiteral("punctuation");
    case RTokenKind::markdownHeading:
        return QStringLiteral("markdownHeading");
    case RTokenKind::yamlFrontMatter:
        return QStringLiteral("yamlFrontMatter");
    case RTokenKind::chunkHeader:
        return QStringLiteral("chunkHeader");
    }
    return QString();
}
