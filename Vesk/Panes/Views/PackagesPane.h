// The installed packages of the session: a filter, the list with versions (and the newer one when a
// check found it) and an attached checkbox per package, and the commands to install, update, remove
// and refresh. What it shows and what a command does both belong to the PackageStore.
#pragma once

#include "Panes/PackageStore.h"

#include <QDialog>
#include <QWidget>

#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;
class QToolButton;
class QTreeWidget;

// Asks for package names to install, completing from the repositories' index once it has come.
class InstallPackagesDialog : public QDialog {
    Q_OBJECT
public:
    InstallPackagesDialog(PackageStore &store, QWidget *parent = nullptr);
    QLineEdit *field() const { return m_field; }
    QPushButton *installButton() const { return m_install; }

private:
    void update();
    PackageStore &m_store;
    QLineEdit *m_field = nullptr;
    QLabel *m_loading = nullptr;
    QPushButton *m_install = nullptr;
    qsizetype m_completedFrom = -1;
};

class PackagesPane : public QWidget {
    Q_OBJECT
public:
    explicit PackagesPane(PackageStore &store, QWidget *parent = nullptr);

    QLineEdit *filterField() const { return m_filter; }
    QTreeWidget *list() const { return m_list; }
    QPushButton *installButton() const { return m_install; }
    QToolButton *updateButton() const { return m_update; }
    QPushButton *removeButton() const { return m_remove; }
    QLabel *statusLabel() const { return m_status; }

    // The removal question's answer (title, text): true to remove. Replaceable so that a view test
    // answers instead of a user.
    std::function<bool(const QString &title, const QString &text)> confirmRemoval;
    // Removes the selected package after asking.
    void removeSelected();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void sync();
    void fillUpdateMenu();
    QString selectedName() const;

    PackageStore &m_store;
    QLineEdit *m_filter = nullptr;
    QStackedWidget *m_stack = nullptr;
    QLabel *m_empty = nullptr;
    QTreeWidget *m_list = nullptr;
    QPushButton *m_install = nullptr;
    QToolButton *m_update = nullptr;
    QPushButton *m_remove = nullptr;
    QToolButton *m_refresh = nullptr;
    QLabel *m_status = nullptr;
    QList<RPackage> m_shown;
    std::map<QString, QString> m_shownOutdated;
    bool m_filling = false;
};
