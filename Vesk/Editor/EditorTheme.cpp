#include "EditorTheme.h"

namespace {

QTextCharFormat colored(const QColor &color, bool bold = false, bool italic = false)
{
    QTextCharFormat format;
    format.setForeground(color);
    if (bold)
        format.setFontWeight(QFont::DemiBold);
    if (italic)
        format.setFontItalic(true);
    return format;
}

struct Palette {
    QColor comment, roxygen, string, number, keyword, constant, operator_, function, argument, bracket,
        heading, yaml, chunk;
};

void fill(EditorTheme &theme, const Palette &p)
{
    auto set = [&theme](RTokenKind kind, const QTextCharFormat &format) {
        theme.formats[static_cast<size_t>(kind)] = format;
    };
    set(RTokenKind::comment, colored(p.comment, false, true));
    set(RTokenKind::roxygen, colored(p.roxygen, false, true));
    set(RTokenKind::roxygenTag, colored(p.roxygen, true, true));
    set(RTokenKind::sectionMarker, colored(p.comment, true));
    set(RTokenKind::string, colored(p.string));
    set(RTokenKind::number, colored(p.number));
    set(RTokenKind::keyword, colored(p.keyword, true));
    set(RTokenKind::constant, colored(p.constant));
    set(RTokenKind::operator_, colored(p.operator_));
    set(RTokenKind::functionCall, colored(p.function));
    set(RTokenKind::argumentName, colored(p.argument));
    // Names keep the text colour: no format, so most of a line carries no range at all.
    set(RTokenKind::identifier, QTextCharFormat());
    set(RTokenKind::bracket, colored(p.bracket));
    set(RTokenKind::punctuation, colored(p.bracket));
    set(RTokenKind::markdownHeading, colored(p.heading, true));
    set(RTokenKind::yamlFrontMatter, colored(p.yaml));
    set(RTokenKind::chunkHeader, colored(p.chunk, true));
}

} // namespace

EditorTheme EditorTheme::light()
{
    EditorTheme theme;
    theme.text = QColor(0x1d, 0x1d, 0x1f);
    theme.background = QColor(0xff, 0xff, 0xff);
    theme.currentLine = QColor(0xf2, 0xf5, 0xfa);
    theme.bracketMatch = QColor(0xd8, 0xe6, 0xfa);
    theme.gutterText = QColor(0x9a, 0x9a, 0xa0);
    theme.gutterBackground = QColor(0xf7, 0xf7, 0xf8);
    theme.breakpoint = QColor(0xd9, 0x3b, 0x30);
    theme.searchMatch = QColor(0xff, 0xe5, 0x8f);
    fill(theme, Palette{QColor(0x6e, 0x7f, 0x70), QColor(0x4f, 0x7a, 0x5c), QColor(0xb2, 0x3a, 0x1e),
                        QColor(0x1c, 0x5d, 0xb8), QColor(0x9b, 0x23, 0x93), QColor(0x7b, 0x3f, 0xb8),
                        QColor(0x6a, 0x5f, 0x50), QColor(0x1a, 0x72, 0x8a), QColor(0x8a, 0x5a, 0x00),
                        QColor(0x55, 0x55, 0x5a), QColor(0x1c, 0x4f, 0x9c), QColor(0x6e, 0x6e, 0x73),
                        QColor(0x3b, 0x6e, 0x22)});
    return theme;
}

EditorTheme EditorTheme::dark()
{
    EditorTheme theme;
    theme.text = QColor(0xe6, 0xe6, 0xe8);
    theme.background = QColor(0x1e, 0x1f, 0x22);
    theme.currentLine = QColor(0x2a, 0x2c, 0x31);
    theme.bracketMatch = QColor(0x3a, 0x4d, 0x6b);
    theme.gutterText = QColor(0x70, 0x72, 0x78);
    theme.gutterBackground = QColor(0x23, 0x24, 0x28);
    theme.breakpoint = QColor(0xff, 0x5f, 0x52);
    theme.searchMatch = QColor(0x6b, 0x5a, 0x1e);
    fill(theme, Palette{QColor(0x7f, 0x8c, 0x80), QColor(0x8f, 0xb8, 0x96), QColor(0xfc, 0x8f, 0x6a),
                        QColor(0x8c, 0xbc, 0xff), QColor(0xff, 0x7a, 0xb2), QColor(0xc3, 0x9b, 0xff),
                        QColor(0xc8, 0xbd, 0xa8), QColor(0x67, 0xcf, 0xe3), QColor(0xe8, 0xbf, 0x6a),
                        QColor(0xa8, 0xa8, 0xae), QColor(0x8c, 0xbc, 0xff), QColor(0x9a, 0x9a, 0xa0),
                        QColor(0xa6, 0xd1, 0x89)});
    return theme;
}
