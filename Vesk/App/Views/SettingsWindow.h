// The settings window: five tabs of the keys whose features exist so far. Every control writes
// through Settings, so the change notification reaches the workspaces at once.
#pragma once

#include <QDialog>

class QTabWidget;
class Settings;

class SettingsWindow : public QDialog {
    Q_OBJECT
public:
    explicit SettingsWindow(Settings &settings, QWidget *parent = nullptr);

    QTabWidget *tabs() const { return m_tabs; }

private:
    QWidget *generalTab();
    QWidget *editorTab();
    QWidget *rTab();
    QWidget *plotsTab();
    QWidget *agentsTab();

    Settings &m_settings;
    QTabWidget *m_tabs = nullptr;
};
