// The user's preferences: key and value pairs in the application's settings store, read at the
// moment of use. Every write goes through this object, which tells its observers.
#pragma once

#include <QObject>
#include <QSettings>
#include <QStringList>
#include <QVariant>

#include <memory>

class Settings : public QObject {
    Q_OBJECT
public:
    // Keys.
    static inline const QString editorFontSize = QStringLiteral("editorFontSize");
    static inline const QString consoleFontSize = QStringLiteral("consoleFontSize");
    static inline const QString agentAutoRun = QStringLiteral("agentAutoRun");
    static inline const QString restoreProject = QStringLiteral("restoreProject");
    static inline const QString hoverDelay = QStringLiteral("hoverDelay");
    static inline const QString modernPlots = QStringLiteral("modernPlots");
    static inline const QString showAgentCosts = QStringLiteral("showAgentCosts");
    static inline const QString tabWidth = QStringLiteral("tabWidth");
    static inline const QString showLineNumbers = QStringLiteral("showLineNumbers");
    static inline const QString highlightCurrentLine = QStringLiteral("highlightCurrentLine");
    static inline const QString autoCloseBrackets = QStringLiteral("autoCloseBrackets");
    static inline const QString cranMirror = QStringLiteral("cranMirror");
    static inline const QString digits = QStringLiteral("digits");
    static inline const QString agentLanguage = QStringLiteral("agentLanguage");
    static inline const QString agentModel = QStringLiteral("agentModel");
    static inline const QString wrapLines = QStringLiteral("wrapLines");
    static inline const QString showSyntaxErrors = QStringLiteral("showSyntaxErrors");
    static inline const QString clearConsoleOnRestart = QStringLiteral("clearConsoleOnRestart");
    static inline const QString showWorkspaceChanges = QStringLiteral("showWorkspaceChanges");
    static inline const QString appearance = QStringLiteral("appearance");
    static inline const QString rPath = QStringLiteral("rPath");
    static inline const QString startupCode = QStringLiteral("startupCode");
    static inline const QString claudePath = QStringLiteral("claudePath");
    static inline const QString agentEffort = QStringLiteral("agentEffort");
    static inline const QString agentInstructions = QStringLiteral("agentInstructions");
    static inline const QString agentOverrides = QStringLiteral("agentOverrides");
    static inline const QString consoleHeightFraction = QStringLiteral("consoleHeightFraction");
    static inline const QString plotExportDPI = QStringLiteral("plotExportDPI");
    static inline const QString recentFiles = QStringLiteral("recentFiles");
    static inline const QString recentProjects = QStringLiteral("recentProjects");

    static inline const QString cloudMirror = QStringLiteral("https://cloud.r-project.org");

    struct Choice {
        QString title;
        QVariant value;
    };
    static QList<Choice> mirrorChoices();
    static QList<Choice> hoverDelayChoices();

    // The store of organisation "Vesk", application "Vesk".
    Settings(QObject *parent = nullptr);
    // Another store, for tests: an INI file at `path`.
    explicit Settings(const QString &path, QObject *parent = nullptr);

    // The application's settings object.
    static Settings &shared();

    // The default of a key, registered or bound; an invalid value for a key without one.
    static QVariant defaultValue(const QString &key);
    static QStringList keys();

    QVariant value(const QString &key) const;
    bool boolValue(const QString &key) const { return value(key).toBool(); }
    int intValue(const QString &key) const { return value(key).toInt(); }
    double doubleValue(const QString &key) const { return value(key).toDouble(); }
    QString stringValue(const QString &key) const { return value(key).toString(); }
    QStringList stringListValue(const QString &key) const { return value(key).toStringList(); }

    // "system", "light" or "dark"; anything else reads as "system".
    QString appearanceValue() const;
    // 72, 144, 300 or 600; any other stored value reads as 144.
    int plotExportDPIValue() const;

    void setValue(const QString &key, const QVariant &value);
    void remove(const QString &key);

signals:
    void changed(const QString &key);

private:
    std::unique_ptr<QSettings> m_store;
};
