#include "PackagesPane.h"

#include <QCompleter>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QStringListModel>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

InstallPackagesDialog::InstallPackagesDialog(PackageStore &store, QWidget *parent)
    : QDialog(parent), m_store(store)
{
    setWindowTitle(QStringLiteral("Install Packages"));
    m_field = new QLineEdit(this);
    m_field->setPlaceholderText(QStringLiteral("e.g. ggplot2 dplyr"));
    m_field->setMinimumWidth(320);
    auto *note =
        new QLabel(QStringLiteral("From CRAN. Separate several packages with spaces or commas."), this);
    note->setEnabled(false);
    m_loading = new QLabel(QStringLiteral("Loading CRAN index…"), this);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QDialogButtonBox::Cancel);
    m_install = buttons->addButton(QStringLiteral("Install"), QDialogButtonBox::AcceptRole);
    m_install->setDefault(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_field);
    layout->addWidget(note);
    layout->addWidget(m_loading);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, this, [this] {
        m_store.install(PackageStore::splitNames(m_field->text()));
        accept();
    });
    connect(m_field, &QLineEdit::textChanged, this, &InstallPackagesDialog::update);
    connect(&m_store, &PackageStore::changed, this, &InstallPackagesDialog::update);
    m_store.loadAvailable();
    update();
}

void InstallPackagesDialog::update()
{
    m_loading->setVisible(m_store.isLoadingAvailable());
    m_install->setEnabled(!PackageStore::splitNames(m_field->text()).isEmpty());
    if (m_completedFrom != m_store.available().size() && !m_store.available().isEmpty()) {
        m_completedFrom = m_store.available().size();
        auto *completer = new QCompleter(m_store.available(), m_field);
        completer->setCaseSensitivity(Qt::CaseInsensitive);
        m_field->setCompleter(completer);
    }
}

PackagesPane::PackagesPane(PackageStore &store, QWidget *parent) : QWidget(parent), m_store(store)
{
    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(QStringLiteral("Filter packages"));
    m_filter->setClearButtonEnabled(true);
    m_install = new QPushButton(QStringLiteral("Install…"), this);
    m_update = new QToolButton(this);
    m_update->setText(QStringLiteral("Update"));
    m_update->setPopupMode(QToolButton::InstantPopup);
    auto *updateMenu = new QMenu(m_update);
    m_update->setMenu(updateMenu);
    m_remove = new QPushButton(QStringLiteral("Remove"), this);
    m_refresh = new QToolButton(this);
    m_refresh->setText(QStringLiteral("↻"));
    m_refresh->setToolTip(QStringLiteral("Refresh the list"));

    m_list = new QTreeWidget(this);
    m_list->setColumnCount(2);
    m_list->setHeaderLabels({QStringLiteral("Package"), QStringLiteral("Version")});
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_list->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    m_list->header()->setStretchLastSection(false);
    m_empty = new QLabel(this);
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setWordWrap(true);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_list);
    m_stack->addWidget(m_empty);
    m_status = new QLabel(this);
    m_status->setWordWrap(true);

    auto *commands = new QHBoxLayout;
    commands->setContentsMargins(0, 0, 0, 0);
    commands->addWidget(m_install);
    commands->addWidget(m_update);
    commands->addWidget(m_remove);
    commands->addStretch(1);
    commands->addWidget(m_refresh);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addWidget(m_filter);
    layout->addLayout(commands);
    layout->addWidget(m_stack, 1);
    layout->addWidget(m_status);

    connect(m_filter, &QLineEdit::textChanged, &m_store, &PackageStore::setFilter);
    connect(m_install, &QPushButton::clicked, this, [this] {
        auto *dialog = new InstallPackagesDialog(m_store, this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->open();
    });
    connect(updateMenu, &QMenu::aboutToShow, this, &PackagesPane::fillUpdateMenu);
    connect(m_remove, &QPushButton::clicked, this, &PackagesPane::removeSelected);
    connect(m_refresh, &QToolButton::clicked, &m_store, &PackageStore::refresh);
    connect(m_list, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem *item, int column) {
        if (m_filling || column != 0)
            return;
        const QString name = item->data(0, Qt::UserRole).toString();
        const bool checked = item->checkState(0) == Qt::Checked;
        const RPackage *package = m_store.package(name);
        if (!package || package->attached == checked)
            return;
        // The box shows what R reports: it turns when the search path does, not at the click.
        m_filling = true;
        item->setCheckState(0, package->attached ? Qt::Checked : Qt::Unchecked);
        m_filling = false;
        m_store.setAttached(name, checked);
    });
    connect(m_list, &QTreeWidget::itemSelectionChanged, this, &PackagesPane::sync);
    connect(&m_store, &PackageStore::changed, this, &PackagesPane::sync);

    confirmRemoval = [this](const QString &title, const QString &text) {
        QMessageBox box(QMessageBox::Question, title, title, QMessageBox::NoButton, this);
        box.setInformativeText(text);
        QPushButton *remove = box.addButton(QStringLiteral("Remove"), QMessageBox::DestructiveRole);
        box.addButton(QMessageBox::Cancel);
        box.setDefaultButton(QMessageBox::Cancel);
        box.exec();
        return box.clickedButton() == remove;
    };
    sync();
}

void PackagesPane::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    m_store.refresh();
}

QString PackagesPane::selectedName() const
{
    const QList<QTreeWidgetItem *> selected = m_list->selectedItems();
    return selected.isEmpty() ? QString() : selected.first()->data(0, Qt::UserRole).toString();
}

void PackagesPane::removeSelected()
{
    const QString name = selectedName();
    if (name.isEmpty())
        return;
    const auto [title, text] = m_store.removalQuestion(name);
    if (confirmRemoval && confirmRemoval(title, text))
        m_store.remove(name);
}

void PackagesPane::fillUpdateMenu()
{
    QMenu *menu = m_update->menu();
    menu->clear();
    QAction *check =
        menu->addAction(QStringLiteral("Check for Updates"), &m_store, &PackageStore::checkUpdates);
    check->setEnabled(m_store.sessionIsLive() && !m_store.isCheckingUpdates());
    const QString name = selectedName();
    if (auto newer = m_store.outdated().find(name); newer != m_store.outdated().end())
        menu->addAction(QStringLiteral("Update %1 to %2").arg(name, newer->second), this,
                        [this, name] { m_store.install({name}); });
    QAction *all = menu->addAction(QStringLiteral("Update All (%1)").arg(m_store.outdated().size()), &m_store,
                                   &PackageStore::updateAll);
    all->setEnabled(!m_store.outdated().empty());
}

void PackagesPane::sync()
{
    const bool live = m_store.sessionIsLive();
    const bool any = live && !m_store.packages().isEmpty();
    if (!live) {
        m_empty->setText(QStringLiteral("<b>No packages</b><br>Start R to see installed packages."));
    } else if (m_store.packages().isEmpty()) {
        m_empty->setText(m_store.error()       ? *m_store.error()
                         : m_store.isLoading() ? QStringLiteral("Listing packages…")
                                               : QStringLiteral("No packages"));
    }
    m_stack->setCurrentWidget(any ? static_cast<QWidget *>(m_list) : m_empty);
    m_install->setEnabled(live);
    m_refresh->setEnabled(live && !m_store.isLoading());
    m_remove->setEnabled(live && !selectedName().isEmpty());
    m_update->setEnabled(live);
    QString status = m_store.statusLine();
    if (m_store.error() && any)
        status = status.isEmpty() ? *m_store.error() : *m_store.error() + u'\n' + status;
    m_status->setText(status);
    m_status->setVisible(!status.isEmpty());

    // Rows are made again only when what they show changed: runs make R idle often.
    const QList<RPackage> visible = m_store.visible();
    if (visible == m_shown && m_store.outdated() == m_shownOutdated)
        return;
    const QString selected = selectedName();
    m_filling = true;
    m_list->clear();
    QList<QTreeWidgetItem *> rows;
    rows.reserve(visible.size());
    QTreeWidgetItem *keep = nullptr;
    for (const RPackage &package : visible) {
        auto *row = new QTreeWidgetItem;
        row->setText(0, package.name);
        row->setData(0, Qt::UserRole, package.name);
        row->setFlags(row->flags() | Qt::ItemIsUserCheckable);
        row->setCheckState(0, package.attached ? Qt::Checked : Qt::Unchecked);
        const auto newer = m_store.outdated().find(package.name);
        row->setText(1, newer == m_store.outdated().end()
                            ? package.version
                            : QStringLiteral("%1 → %2").arg(package.version, newer->second));
        QString tip = package.title.value_or(package.name);
        if (package.library)
            tip += u'\n' + *package.library;
        row->setToolTip(0, tip);
        rows.append(row);
        if (package.name == selected)
            keep = row;
    }
    m_list->addTopLevelItems(rows);
    if (keep)
        keep->setSelected(true);
    m_filling = false;
    m_shown = visible;
    m_shownOutdated = m_store.outdated();
    m_remove->setEnabled(live && !selectedName().isEmpty());
}
