#include "DocumentTabs.h"

#include "App/Workspace.h"
#include "Data/DataGridModel.h"
#include "Data/Views/DataGridView.h"
#include "Documents/DocumentStore.h"
#include "Editor/Views/ScriptEditorView.h"
#include "PlainTextEditorView.h"
#include "ScriptPane.h"

#include <QLabel>
#include <QPointer>
#include <QTabBar>

DocumentTabs::DocumentTabs(DocumentStore &store, Workspace *workspace, QWidget *parent)
    : QTabWidget(parent), m_store(store), m_workspace(workspace)
{
    setTabsClosable(true);
    setDocumentMode(true);
    setElideMode(Qt::ElideMiddle);
    setUsesScrollButtons(true);
    connect(&m_store, &DocumentStore::itemsChanged, this, &DocumentTabs::syncItems);
    connect(&m_store, &DocumentStore::selectionChanged, this, &DocumentTabs::syncSelection);
    connect(&m_store, &DocumentStore::revealRequested, this, [this](EditorDocument *document, int line) {
        if (auto *editor = qobject_cast<PlainTextEditorView *>(editorView(document->id())))
            editor->revealLine(line);
    });
    connect(this, &QTabWidget::currentChanged, this, [this](int index) {
        if (m_syncing || index < 0)
            return;
        m_store.select(m_pages.key(widget(index)));
    });
    connect(this, &QTabWidget::tabCloseRequested, this, [this](int index) {
        if (QWidget *page = widget(index))
            m_store.close(m_pages.key(page));
    });
    syncItems();
}

QString DocumentTabs::tabTitle(const EditorDocument &document)
{
    return document.needsSave() ? QStringLiteral("● ") + document.title() : document.title();
}

QWidget *DocumentTabs::editorView(const QUuid &id) const
{
    auto *pane = qobject_cast<ScriptPane *>(m_pages.value(id));
    return pane ? pane->editor() : nullptr;
}

QWidget *DocumentTabs::createEditorView(EditorDocument &document)
{
    if (m_workspace)
        return new ScriptEditorView(*m_workspace, document);
    return new PlainTextEditorView(document);
}

QWidget *DocumentTabs::createDataView(DataDocument &data)
{
    // The model is the document's, so a tab made again finds its pages, sort and filter.
    auto *model = data.findChild<DataGridModel *>();
    if (!model) {
        QPointer<Workspace> workspace(m_workspace);
        auto request = [workspace](const QString &name, const QList<RArgument> &args,
                                   const QList<std::pair<QString, RArgument>> &named,
                                   DataGridModel::KernelCompletion done) {
            if (!workspace) {
                done(Failure{QStringLiteral("No R session is running.")});
                return;
            }
            workspace->session().request(name, args, named, [done](const RRequestResult &result) {
                if (result.ok())
                    done(result.value());
                else
                    done(Failure{result.error().description()});
            });
        };
        model = DataGridModel::forExpression(data.expr(), data.title(), request, &data);
        connect(&data, &DataDocument::reloadRequested, model, &DataGridModel::reload);
    }
    return new DataGridView(*model);
}

void DocumentTabs::syncItems()
{
    m_syncing = true;
    const QList<OpenItem> &items = m_store.items();
    QSet<QUuid> live;
    for (const OpenItem &item : items)
        live.insert(item.id());
    for (auto it = m_pages.begin(); it != m_pages.end();) {
        if (live.contains(it.key())) {
            ++it;
            continue;
        }
        removeTab(indexOf(it.value()));
        it.value()->deleteLater();
        it = m_pages.erase(it);
    }
    for (qsizetype i = 0; i < items.size(); ++i) {
        const OpenItem &item = items[i];
        QWidget *page = m_pages.value(item.id());
        if (!page) {
            if (item.script) {
                page = new ScriptPane(m_store, *item.script, createEditorView(*item.script));
                EditorDocument *document = item.script;
                connect(document, &EditorDocument::stateChanged, this,
                        [this, document] { updateTitle(document); });
            } else {
                page = createDataView(*item.data);
            }
            m_pages.insert(item.id(), page);
            insertTab(int(i), page, item.title());
            if (item.script)
                updateTitle(item.script);
        } else if (indexOf(page) != i) {
            tabBar()->moveTab(indexOf(page), int(i));
        }
    }
    m_syncing = false;
    // With nothing open the console below takes the whole column. Shown before the selection
    // moves the focus, which a hidden editor would not take.
    setVisible(!items.isEmpty());
    syncSelection();
}

void DocumentTabs::syncSelection()
{
    const auto selected = m_store.selectedID();
    QWidget *page = selected ? m_pages.value(*selected) : nullptr;
    if (!page || currentWidget() == page)
        return;
    m_syncing = true;
    setCurrentWidget(page);
    m_syncing = false;
    if (auto *pane = qobject_cast<ScriptPane *>(page))
        pane->editor()->setFocus();
}

void DocumentTabs::updateTitle(EditorDocument *document)
{
    const int index = indexOf(m_pages.value(document->id()));
    if (index < 0)
        return;
    setTabText(index, tabTitle(*document));
    setTabToolTip(index, document->path().value_or(document->title()));
}
