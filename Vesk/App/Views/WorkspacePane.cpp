#include "WorkspacePane.h"

#include "App/Workspace.h"
#include "Appearance.h"
#include "Documents/DocumentStore.h"
#include "RLiteral.h"

#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

QString classLabel(const REnvObject &object)
{
    if (!object.classes.isEmpty())
        return object.classes.first();
    return object.type.value_or(QString());
}

QString dimensions(const REnvObject &object)
{
    if (auto text = object.dimensionText())
        return *text;
    if (object.length && object.kind != REnvObject::Kind::Function)
        return QStringLiteral("[%1]").arg(QLocale().toString(qint64(*object.length)));
    return {};
}

} // namespace

WorkspacePane::WorkspacePane(Workspace &workspace, QWidget *parent) : QWidget(parent), m_workspace(workspace)
{
    auto *title = new QLabel(QStringLiteral("Workspace"), this);
    title->setObjectName(QStringLiteral("paneTitle"));
    m_objects = new QTreeWidget(this);
    m_objects->setColumnCount(4);
    m_objects->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Class"), QStringLiteral("Dimensions"),
                                QStringLiteral("Size")});
    m_objects->setRootIsDecorated(false);
    m_objects->setUniformRowHeights(true);
    m_objects->setAlternatingRowColors(true);
    m_objects->header()->setStretchLastSection(false);
    m_objects->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column = 1; column < 4; ++column)
        m_objects->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);

    auto *changesTitle = new QLabel(QStringLiteral("Last run"), this);
    changesTitle->setObjectName(QStringLiteral("paneTitle"));
    m_lastRun = new QLabel(this);
    m_lastRun->setContentsMargins(8, 0, 8, 0);
    m_changes = new QListWidget(this);
    m_changes->setMaximumHeight(160);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(title);
    layout->addWidget(m_objects, 1);
    layout->addWidget(changesTitle);
    layout->addWidget(m_lastRun);
    layout->addWidget(m_changes);

    // A double click views the object in a data tab; what the grid can't page stays out.
    connect(m_objects, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem *item) {
        const int row = m_objects->indexOfTopLevelItem(item);
        if (row < 0 || row >= m_shown.size())
            return;
        const REnvObject &object = m_shown[row];
        if (object.kind == REnvObject::Kind::Data || object.kind == REnvObject::Kind::List ||
            object.kind == REnvObject::Kind::Value)
            m_workspace.documents().openData(RLiteral::name(object.name), object.name);
    });
    connect(&m_workspace, &Workspace::environmentChanged, this, &WorkspacePane::updateObjects);
    connect(&m_workspace, &Workspace::lastRunChanged, this, &WorkspacePane::updateChanges);
    connect(&m_workspace.console(), &ConsoleModel::changed, this, &WorkspacePane::updateChanges);
    updateObjects();
    updateChanges();
}

void WorkspacePane::fill(QTreeWidgetItem *row, const REnvObject &object)
{
    row->setText(0, object.name);
    row->setText(1, classLabel(object));
    row->setText(2, dimensions(object));
    row->setText(3, object.sizeText().value_or(QString()));
    row->setToolTip(0, object.summary.value_or(object.name));
    row->setTextAlignment(3, Qt::AlignRight | Qt::AlignVCenter);
}

// Rows are added, changed and removed where the environment changed: a session with thousands of
// objects must not rebuild them all after every run. Both lists are in the session's name order.
void WorkspacePane::updateObjects()
{
    const QList<REnvObject> &now = m_workspace.environment();
    const QList<REnvObject> &before = m_shown;
    int row = 0;
    qsizetype a = 0;
    qsizetype b = 0;
    while (a < before.size() || b < now.size()) {
        if (b == now.size() ||
            (a < before.size() && RSessionState::nameBefore(before[a].name, now[b].name))) {
            delete m_objects->takeTopLevelItem(row);
            ++a;
        } else if (a == before.size() || before[a].name != now[b].name) {
            auto *item = new QTreeWidgetItem;
            fill(item, now[b]);
            m_objects->insertTopLevelItem(row++, item);
            ++b;
        } else {
            if (!(before[a] == now[b]))
                fill(m_objects->topLevelItem(row), now[b]);
            ++row;
            ++a;
            ++b;
        }
    }
    m_shown = now;
}

void WorkspacePane::updateChanges()
{
    const auto &lastRun = m_workspace.lastRun();
    m_lastRun->setText(lastRun ? QStringLiteral("%1 · %2 s")
                                     .arg(lastRun->ok ? QStringLiteral("Finished") : QStringLiteral("Failed"))
                                     .arg(lastRun->duration, 0, 'f', 2)
                               : QString());
    const QList<ConsoleModel::Cell> &cells = m_workspace.console().cells();
    QList<WorkspaceChange> changes;
    for (qsizetype i = cells.size() - 1; i >= 0; --i) {
        if (cells[i].execID && cells[i].origin.kind != ExecOrigin::Kind::System) {
            changes = cells[i].changes;
            break;
        }
    }
    const ConsoleColors &colors = Appearance::consoleColors();
    m_changes->clear();
    for (const WorkspaceChange &change : changes) {
        QString sign = QStringLiteral("~");
        QColor color = colors.accent;
        if (change.kind == WorkspaceChange::Kind::Added) {
            sign = QStringLiteral("+");
            color = colors.changeAdded;
        } else if (change.kind == WorkspaceChange::Kind::Removed) {
            sign = QStringLiteral("−");
            color = colors.changeRemoved;
        }
        auto *row = new QListWidgetItem(QStringLiteral("%1 %2%3").arg(
            sign, change.name, change.detail ? QStringLiteral("  ") + *change.detail : QString()));
        row->setForeground(color);
        row->setToolTip(change.name + (change.kind == WorkspaceChange::Kind::Removed
                                           ? QStringLiteral(" was removed")
                                           : QStringLiteral(" in the workspace")));
        m_changes->addItem(row);
    }
}
