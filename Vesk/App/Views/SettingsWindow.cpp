#include "SettingsWindow.h"

#include "Base/Settings.h"
#include "ToolLocator.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {

QLabel *caption(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QWidget *emptyTab(QWidget *parent)
{
    auto *tab = new QWidget(parent);
    auto *layout = new QVBoxLayout(tab);
    layout->addStretch();
    return tab;
}

} // namespace

SettingsWindow::SettingsWindow(Settings &settings, QWidget *parent) : QDialog(parent), m_settings(settings)
{
    setWindowTitle(QStringLiteral("Settings"));
    m_tabs = new QTabWidget(this);
    m_tabs->addTab(generalTab(), QStringLiteral("General"));
    m_tabs->addTab(editorTab(), QStringLiteral("Editor"));
    m_tabs->addTab(rTab(), QStringLiteral("R"));
    m_tabs->addTab(plotsTab(), QStringLiteral("Plots"));
    m_tabs->addTab(agentsTab(), QStringLiteral("Agents"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    resize(560, 420);
}

QWidget *SettingsWindow::generalTab()
{
    auto *tab = new QWidget(this);
    auto *outer = new QVBoxLayout(tab);
    auto *form = new QFormLayout;
    outer->addLayout(form);
    outer->addStretch();

    auto *appearance = new QComboBox(tab);
    appearance->setObjectName(Settings::appearance);
    appearance->addItem(QStringLiteral("System"), QStringLiteral("system"));
    appearance->addItem(QStringLiteral("Light"), QStringLiteral("light"));
    appearance->addItem(QStringLiteral("Dark"), QStringLiteral("dark"));
    appearance->setCurrentIndex(std::max(0, appearance->findData(m_settings.appearanceValue())));
    connect(appearance, &QComboBox::currentIndexChanged, this,
            [this, appearance] { m_settings.setValue(Settings::appearance, appearance->currentData()); });
    form->addRow(QStringLiteral("Appearance"), appearance);

    auto *fontSize = new QDoubleSpinBox(tab);
    fontSize->setObjectName(Settings::consoleFontSize);
    fontSize->setRange(9, 24);
    fontSize->setSingleStep(0.5);
    fontSize->setDecimals(1);
    fontSize->setValue(m_settings.doubleValue(Settings::consoleFontSize));
    connect(fontSize, &QDoubleSpinBox::valueChanged, this,
            [this](double value) { m_settings.setValue(Settings::consoleFontSize, value); });
    form->addRow(QStringLiteral("Console font size"), fontSize);

    const auto check = [&](const QString &key, const QString &text) {
        auto *box = new QCheckBox(text, tab);
        box->setObjectName(key);
        box->setChecked(m_settings.boolValue(key));
        connect(box, &QCheckBox::toggled, this, [this, key](bool on) { m_settings.setValue(key, on); });
        form->addRow(QString(), box);
    };
    check(Settings::clearConsoleOnRestart, QStringLiteral("Clear the console when R restarts"));
    check(Settings::showWorkspaceChanges, QStringLiteral("Show which objects each run added or changed"));
    return tab;
}

QWidget *SettingsWindow::editorTab()
{
    return emptyTab(this);
}

QWidget *SettingsWindow::rTab()
{
    auto *tab = new QWidget(this);
    auto *outer = new QVBoxLayout(tab);
    auto *form = new QFormLayout;
    outer->addLayout(form);
    outer->addStretch();

    auto *path = new QLineEdit(tab);
    path->setObjectName(Settings::rPath);
    path->setPlaceholderText(RLocator::find().value_or(QString()));
    path->setText(m_settings.stringValue(Settings::rPath));
    auto *pathProblem = caption(QString(), tab);
    const auto checkPath = [path, pathProblem] {
        const QString text = path->text().trimmed();
        const bool bad = !text.isEmpty() && !ToolLocator::isExecutableFile(text);
        pathProblem->setText(bad ? QStringLiteral("No executable file at this path.")
                                 : QStringLiteral("Takes effect when R restarts."));
    };
    checkPath();
    connect(path, &QLineEdit::textChanged, this, checkPath);
    connect(path, &QLineEdit::editingFinished, this,
            [this, path] { m_settings.setValue(Settings::rPath, path->text().trimmed()); });
    form->addRow(QStringLiteral("R executable"), path);
    form->addRow(QString(), pathProblem);

    auto *digits = new QSpinBox(tab);
    digits->setObjectName(Settings::digits);
    digits->setRange(1, 22);
    digits->setValue(m_settings.intValue(Settings::digits));
    connect(digits, &QSpinBox::valueChanged, this,
            [this](int value) { m_settings.setValue(Settings::digits, value); });
    form->addRow(QStringLiteral("Significant digits in output"), digits);

    auto *mirror = new QComboBox(tab);
    mirror->setObjectName(Settings::cranMirror);
    for (const Settings::Choice &choice : Settings::mirrorChoices())
        mirror->addItem(choice.title, choice.value);
    const int index = mirror->findData(m_settings.stringValue(Settings::cranMirror));
    if (index < 0)
        mirror->addItem(m_settings.stringValue(Settings::cranMirror),
                        m_settings.stringValue(Settings::cranMirror));
    mirror->setCurrentIndex(index < 0 ? mirror->count() - 1 : index);
    connect(mirror, &QComboBox::currentIndexChanged, this,
            [this, mirror] { m_settings.setValue(Settings::cranMirror, mirror->currentData()); });
    form->addRow(QStringLiteral("Package mirror"), mirror);

    auto *startup = new QPlainTextEdit(tab);
    startup->setObjectName(Settings::startupCode);
    startup->setPlainText(m_settings.stringValue(Settings::startupCode));
    startup->setMaximumHeight(90);
    connect(startup, &QPlainTextEdit::textChanged, this,
            [this, startup] { m_settings.setValue(Settings::startupCode, startup->toPlainText()); });
    form->addRow(QStringLiteral("Startup code"), startup);
    form->addRow(QString(),
                 caption(QStringLiteral("Runs quietly every time R starts, e.g. library(tidyverse) or "
                                        "options(scipen = 999)."),
                         tab));
    return tab;
}

QWidget *SettingsWindow::plotsTab()
{
    return emptyTab(this);
}

QWidget *SettingsWindow::agentsTab()
{
    return emptyTab(this);
}
