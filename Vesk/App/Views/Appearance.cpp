#include "Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace {

bool g_dark = false;
QPalette g_systemPalette;
bool g_systemPaletteKept = false;

ConsoleColors lightColors()
{
    return {QColor(0x1f, 0x23, 0x28), QColor(0x6e, 0x77, 0x81), QColor(0xf3, 0xf5, 0xf8),
            QColor(0x1f, 0x4e, 0x9e), QColor(0xfd, 0xed, 0xed), QColor(0xb4, 0x23, 0x18),
            QColor(0xfd, 0xf6, 0xe3), QColor(0x8a, 0x5a, 0x00), QColor(0x4b, 0x55, 0x63),
            QColor(0x6e, 0x77, 0x81), QColor(0x2f, 0x6f, 0xeb), QColor(0x1a, 0x7f, 0x37),
            QColor(0xb4, 0x23, 0x18)};
}

ConsoleColors darkColors()
{
    return {QColor(0xe6, 0xe8, 0xeb), QColor(0x8b, 0x94, 0x9e), QColor(0x26, 0x2a, 0x31),
            QColor(0x8c, 0xb4, 0xff), QColor(0x3a, 0x22, 0x24), QColor(0xff, 0x8a, 0x80),
            QColor(0x38, 0x30, 0x1c), QColor(0xe3, 0xb3, 0x41), QColor(0xb1, 0xba, 0xc4),
            QColor(0x8b, 0x94, 0x9e), QColor(0x58, 0x9b, 0xff), QColor(0x56, 0xd3, 0x64),
            QColor(0xff, 0x8a, 0x80)};
}

QPalette palette(bool dark)
{
    QPalette p;
    const QColor window = dark ? QColor(0x1e, 0x21, 0x26) : QColor(0xf6, 0xf7, 0xf9);
    const QColor base = dark ? QColor(0x17, 0x19, 0x1d) : QColor(0xff, 0xff, 0xff);
    const QColor text = dark ? QColor(0xe6, 0xe8, 0xeb) : QColor(0x1f, 0x23, 0x28);
    const QColor accent = dark ? QColor(0x3b, 0x82, 0xf6) : QColor(0x2f, 0x6f, 0xeb);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, dark ? QColor(0x22, 0x25, 0x2b) : QColor(0xf3, 0xf5, 0xf8));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, dark ? QColor(0x7a, 0x82, 0x8c) : QColor(0x9a, 0xa1, 0xa9));
    p.setColor(QPalette::Mid, dark ? QColor(0x33, 0x37, 0x3e) : QColor(0xdd, 0xe1, 0xe6));
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::Disabled, QPalette::Text,
               dark ? QColor(0x6b, 0x72, 0x7b) : QColor(0xa0, 0xa6, 0xad));
    p.setColor(QPalette::Disabled, QPalette::ButtonText,
               dark ? QColor(0x6b, 0x72, 0x7b) : QColor(0xa0, 0xa6, 0xad));
    return p;
}

QString styleSheet(bool dark)
{
    const QString border = dark ? QStringLiteral("#33373e") : QStringLiteral("#dde1e6");
    const QString panel = dark ? QStringLiteral("#1e2126") : QStringLiteral("#f6f7f9");
    const QString field = dark ? QStringLiteral("#23272d") : QStringLiteral("#ffffff");
    const QString capsule = dark ? QStringLiteral("#2a3140") : QStringLiteral("#e8effc");
    const QString capsuleText = dark ? QStringLiteral("#9cc0ff") : QStringLiteral("#1f4e9e");
    return QStringLiteral(
               "QSplitter::handle { background: %1; }"
               "QPlainTextEdit#consoleTranscript { border: none; }"
               "QFrame#consoleInputFrame { background: %3; border: 1px solid %1; border-radius: 8px; }"
               "QPlainTextEdit#consoleInput { border: none; background: transparent; }"
               "QLabel#activityCapsule { background: %4; color: %5; border-radius: 9px; padding: 2px 10px; }"
               "QLabel#startupProblem { color: #d1242f; padding: 4px 8px; }"
               "QLabel#paneTitle { font-weight: 600; padding: 6px 8px 2px 8px; }"
               "QToolButton#askToggle { border: 1px solid %1; border-radius: 6px; padding: 2px 8px; }"
               "QToolButton#askToggle:checked { background: %4; color: %5; }"
               "QTreeWidget, QListWidget { border: none; background: %2; }"
               "QStatusBar { border-top: 1px solid %1; }")
        .arg(border, panel, field, capsule, capsuleText);
}

} // namespace

namespace Appearance {

void apply(const QString &appearance)
{
    auto *app = qobject_cast<QApplication *>(QCoreApplication::instance());
    if (!app)
        return;
    if (!g_systemPaletteKept) {
        g_systemPalette = QApplication::palette();
        g_systemPaletteKept = true;
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    }
    if (appearance == QStringLiteral("dark"))
        g_dark = true;
    else if (appearance == QStringLiteral("light"))
        g_dark = false;
    else
        g_dark = g_systemPalette.color(QPalette::Window).lightness() < 128;
    QApplication::setPalette(palette(g_dark));
    app->setStyleSheet(styleSheet(g_dark));
}

bool isDark()
{
    return g_dark;
}

const ConsoleColors &consoleColors()
{
    static const ConsoleColors light = lightColors();
    static const ConsoleColors dark = darkColors();
    return g_dark ? dark : light;
}

QColor ansiColor(const ANSIStyle::Color &color)
{
    if (color.kind == ANSIStyle::Color::Kind::RGB)
        return QColor(color.r, color.g, color.b);
    const int index = std::clamp(color.index, 0, 255);
    static const QColor lightBase[16] = {
        QColor(0x1f, 0x23, 0x28), QColor(0xc4, 0x1a, 0x16), QColor(0x1a, 0x7f, 0x37),
        QColor(0x9a, 0x67, 0x00), QColor(0x1f, 0x5f, 0xd1), QColor(0x8e, 0x3f, 0xb5),
        QColor(0x0f, 0x7b, 0x8a), QColor(0x6e, 0x77, 0x81), QColor(0x57, 0x60, 0x6a),
        QColor(0xe0, 0x3e, 0x36), QColor(0x2d, 0xa4, 0x4e), QColor(0xbf, 0x87, 0x00),
        QColor(0x3b, 0x82, 0xf6), QColor(0xa3, 0x5b, 0xd6), QColor(0x14, 0x9e, 0xb0),
        QColor(0x9a, 0xa1, 0xa9)};
    static const QColor darkBase[16] = {
        QColor(0x48, 0x4f, 0x58), QColor(0xff, 0x7b, 0x72), QColor(0x3f, 0xb9, 0x50),
        QColor(0xd2, 0x99, 0x22), QColor(0x58, 0xa6, 0xff), QColor(0xbc, 0x8c, 0xff),
        QColor(0x39, 0xc5, 0xcf), QColor(0xb1, 0xba, 0xc4), QColor(0x6e, 0x76, 0x81),
        QColor(0xff, 0xa1, 0x98), QColor(0x56, 0xd3, 0x64), QColor(0xe3, 0xb3, 0x41),
        QColor(0x79, 0xc0, 0xff), QColor(0xd2, 0xa8, 0xff), QColor(0x56, 0xd4, 0xdd),
        QColor(0xf0, 0xf6, 0xfc)};
    if (index < 16)
        return g_dark ? darkBase[index] : lightBase[index];
    if (index < 232) {
        const int n = index - 16;
        const auto level = [](int v) { return v == 0 ? 0 : 55 + v * 40; };
        return QColor(level(n / 36), level((n / 6) % 6), level(n % 6));
    }
    const int grey = 8 + (index - 232) * 10;
    return QColor(grey, grey, grey);
}

} // namespace Appearance
