#include "Settings.h"

#include <QHash>

namespace {

const QHash<QString, QVariant> &defaults()
{
    static const QHash<QString, QVariant> table = {
        {Settings::editorFontSize, 13.0},
        {Settings::consoleFontSize, 12.5},
        {Settings::agentAutoRun, false},
        {Settings::restoreProject, true},
        {Settings::hoverDelay, 250},
        {Settings::modernPlots, true},
        {Settings::showAgentCosts, true},
        {Settings::tabWidth, 2},
        {Settings::showLineNumbers, true},
        {Settings::highlightCurrentLine, true},
        {Settings::autoCloseBrackets, true},
        {Settings::cranMirror, Settings::cloudMirror},
        {Settings::digits, 7},
        {Settings::agentLanguage, QStringLiteral("auto")},
        {Settings::agentModel, QStringLiteral("claude-opus-5-5")},
        {Settings::wrapLines, false},
        {Settings::showSyntaxErrors, true},
        {Settings::clearConsoleOnRestart, false},
        {Settings::showWorkspaceChanges, true},
        {Settings::appearance, QStringLiteral("system")},
        {Settings::rPath, QString()},
        {Settings::startupCode, QString()},
        {Settings::claudePath, QString()},
        {Settings::agentEffort, QString()},
        {Settings::agentInstructions, QString()},
        {Settings::agentOverrides, QVariant()},
        {Settings::consoleHeightFraction, 0.36},
        {Settings::plotExportDPI, 144},
        {Settings::recentFiles, QStringList()},
        {Settings::recentProjects, QStringList()},
    };
    return table;
}

} // namespace

QList<Settings::Choice> Settings::mirrorChoices()
{
    return {
        {QStringLiteral("Automatic"), cloudMirror},
        {QStringLiteral("Germany (GWDG)"), QStringLiteral("https://ftp.gwdg.de/pub/misc/cran/")},
        {QStringLiteral("Austria (WU Wien)"), QStringLiteral("https://cran.wu.ac.at/")},
        {QStringLiteral("Switzerland (ETH Zürich)"), QStringLiteral("https://stat.ethz.ch/CRAN/")},
        {QStringLiteral("Posit Package Manager"),
         QStringLiteral("https://packagemanager.posit.co/cran/latest")},
    };
}

QList<Settings::Choice> Settings::hoverDelayChoices()
{
    return {{QStringLiteral("Instantly"), 120},
            {QStringLiteral("Quickly"), 250},
            {QStringLiteral("After a pause"), 600},
            {QStringLiteral("Never"), -1}};
}

Settings::Settings(QObject *parent)
    : QObject(parent), m_store(std::make_unique<QSettings>(QStringLiteral("Vesk"), QStringLiteral("Vesk")))
{
}

Settings::Settings(const QString &path, QObject *parent)
    : QObject(parent), m_store(std::make_unique<QSettings>(path, QSettings::IniFormat))
{
}

Settings &Settings::shared()
{
    static Settings *instance = new Settings();
    return *instance;
}

QVariant Settings::defaultValue(const QString &key)
{
    return defaults().value(key);
}

QStringList Settings::keys()
{
    return defaults().keys();
}

QVariant Settings::value(const QString &key) const
{
    const QVariant fallback = defaultValue(key);
    if (!m_store->contains(key))
        return fallback;
    QVariant stored = m_store->value(key);
    // INI and native stores give text back; read it as the default's type where it converts.
    if (fallback.isValid() && stored.metaType() != fallback.metaType()) {
        if (fallback.metaType().id() == QMetaType::QStringList &&
            stored.metaType().id() == QMetaType::QString)
            return QStringList{stored.toString()};
        QVariant converted = stored;
        if (converted.convert(fallback.metaType()))
            return converted;
        return fallback;
    }
    return stored;
}

QString Settings::appearanceValue() const
{
    const QString text = stringValue(appearance);
    if (text == QStringLiteral("light") || text == QStringLiteral("dark"))
        return text;
    return QStringLiteral("system");
}

int Settings::plotExportDPIValue() const
{
    const int dpi = intValue(plotExportDPI);
    return (dpi == 72 || dpi == 144 || dpi == 300 || dpi == 600) ? dpi : 144;
}

void Settings::setValue(const QString &key, const QVariant &value)
{
    if (m_store->contains(key) && m_store->value(key) == value)
        return;
    m_store->setValue(key, value);
    emit changed(key);
}

void Settings::remove(const QString &key)
{
    if (!m_store->contains(key))
        return;
    m_store->remove(key);
    emit changed(key);
}
