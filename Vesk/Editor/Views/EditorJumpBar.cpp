#include "EditorJumpBar.h"

#include "Editor/CodeEditorController.h"
#include "Outline.h"

#include <QCoreApplication>
#include <QPointer>
#include <QStringListModel>
#include <QThreadPool>

EditorJumpBar::EditorJumpBar(CodeEditorController &controller, QWidget *parent)
    : QComboBox(parent), m_controller(controller)
{
    setObjectName(QStringLiteral("editorJumpBar"));
    setSizeAdjustPolicy(QComboBox::AdjustToContents);
    setMinimumContentsLength(24);
    m_labels = new QStringListModel(this);
    setModel(m_labels);
    // The outline is a scan of the whole text; after typing it waits for a pause.
    m_refresh.setSingleShot(true);
    m_refresh.setInterval(400);
    connect(&m_refresh, &QTimer::timeout, this, &EditorJumpBar::refresh);
    if (EditorSession *session = controller.session()) {
        connect(session, &EditorSession::textSynced, &m_refresh, qOverload<>(&QTimer::start));
        // A loaded text is shown first; its outline follows.
        connect(session, &EditorSession::reloaded, &m_refresh, qOverload<>(&QTimer::start));
    }
    // The entry shown is the one the caret stands under.
    connect(&controller, &CodeEditorController::cursorChanged, this, &EditorJumpBar::followCaret);
    connect(this, &QComboBox::activated, this, [this](int index) {
        if (index >= 0 && index < m_items.size())
            m_controller.revealLine(int(m_items[index].line));
        m_controller.focus();
    });
    refresh();
}

void EditorJumpBar::refresh()
{
    const QString text = m_controller.text();
    const RSourceLanguage language = m_controller.language();
    const quint64 generation = ++m_generation;
    if (text.size() < backgroundScanLength) {
        showItems(Outline::items(text, language));
        return;
    }
    // A long text is scanned on a pool thread (the text is shared, not copied); an answer that a
    // later refresh overtook is dropped.
    QPointer<EditorJumpBar> self(this);
    QThreadPool::globalInstance()->start([self, text, language, generation] {
        QList<OutlineItem> items = Outline::scan(text, language);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, generation, items = std::move(items)] {
                if (self && self->m_generation == generation)
                    self->showItems(items);
            },
            Qt::QueuedConnection);
    });
}

void EditorJumpBar::showItems(const QList<OutlineItem> &items)
{
    if (items == m_items && count() > 0)
        return;
    m_items = items;
    if (m_items.isEmpty()) {
        m_labels->setStringList({Outline::emptyText()});
        setEnabled(false);
        return;
    }
    setEnabled(true);
    // One model reset, and a width from the shortest length for a long list: a long script has
    // thousands of entries, and a box that adds them one by one and measures them all holds the
    // window for a tenth of a second.
    QStringList labels;
    labels.reserve(m_items.size());
    for (const OutlineItem &item : m_items) {
        QString marker;
        switch (item.kind) {
        case OutlineItem::Kind::section:
            marker = QStringLiteral("§ ");
            break;
        case OutlineItem::Kind::function:
            marker = QStringLiteral("ƒ ");
            break;
        case OutlineItem::Kind::chunk:
            marker = QStringLiteral("▤ ");
            break;
        case OutlineItem::Kind::heading:
            marker = QStringLiteral("# ");
            break;
        }
        labels.append(QString(item.level * 2, u' ') + marker + item.title);
    }
    setSizeAdjustPolicy(labels.size() > measuredEntries ? QComboBox::AdjustToMinimumContentsLengthWithIcon
                                                        : QComboBox::AdjustToContents);
    m_labels->setStringList(labels);
    followCaret();
}

void EditorJumpBar::followCaret()
{
    int index = 0;
    for (int i = 0; i < m_items.size(); ++i)
        if (m_items[i].line <= m_controller.cursorLine())
            index = i;
    if (!m_items.isEmpty() && index != currentIndex())
        setCurrentIndex(index);
}
