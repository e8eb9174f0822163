#include "EditorFindBar.h"

#include "CodeEditor.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTextDocument>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

// Highlighting stops here so that a one-letter search in a long script stays quick.
constexpr int matchLimit = 1000;

} // namespace

EditorFindBar::EditorFindBar(CodeEditor *editor, QWidget *parent) : QWidget(parent), m_editor(editor)
{
    setObjectName(QStringLiteral("editorFindBar"));
    m_find = new QLineEdit(this);
    m_find->setPlaceholderText(QStringLiteral("Find"));
    m_find->setClearButtonEnabled(true);
    m_replace = new QLineEdit(this);
    m_replace->setPlaceholderText(QStringLiteral("Replace"));
    m_caseSensitive = new QToolButton(this);
    m_caseSensitive->setText(QStringLiteral("Aa"));
    m_caseSensitive->setCheckable(true);
    m_caseSensitive->setToolTip(QStringLiteral("Match case"));
    m_count = new QLabel(this);
    auto *previous = new QToolButton(this);
    previous->setText(QStringLiteral("‹"));
    auto *next = new QToolButton(this);
    next->setText(QStringLiteral("›"));
    auto *done = new QToolButton(this);
    done->setText(QStringLiteral("Done"));
    auto *replaceOne = new QPushButton(QStringLiteral("Replace"), this);
    auto *replaceEvery = new QPushButton(QStringLiteral("All"), this);

    auto *findRow = new QHBoxLayout;
    findRow->addWidget(m_find, 1);
    findRow->addWidget(m_caseSensitive);
    findRow->addWidget(m_count);
    findRow->addWidget(previous);
    findRow->addWidget(next);
    findRow->addWidget(done);
    m_replaceRow = new QWidget(this);
    auto *replaceRow = new QHBoxLayout(m_replaceRow);
    replaceRow->setContentsMargins(0, 0, 0, 0);
    replaceRow->addWidget(m_replace, 1);
    replaceRow->addWidget(replaceOne);
    replaceRow->addWidget(replaceEvery);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 4);
    layout->setSpacing(4);
    layout->addLayout(findRow);
    layout->addWidget(m_replaceRow);

    connect(m_find, &QLineEdit::textChanged, this, &EditorFindBar::highlightMatches);
    connect(m_caseSensitive, &QToolButton::toggled, this, &EditorFindBar::highlightMatches);
    connect(m_find, &QLineEdit::returnPressed, this, [this] { findNext(false); });
    connect(previous, &QToolButton::clicked, this, [this] { findNext(true); });
    connect(next, &QToolButton::clicked, this, [this] { findNext(false); });
    connect(done, &QToolButton::clicked, this, &EditorFindBar::close);
    connect(replaceOne, &QPushButton::clicked, this, &EditorFindBar::replaceCurrent);
    connect(replaceEvery, &QPushButton::clicked, this, &EditorFindBar::replaceAll);
    // A text still loading is searched once it is all in, not at each of its slices.
    connect(m_editor->document(), &QTextDocument::contentsChanged, this, [this] {
        if (isVisible() && !m_editor->session()->isLoading())
            highlightMatches();
    });
    connect(m_editor->session(), &EditorSession::loadingChanged, this, [this](bool loading) {
        if (isVisible() && !loading)
            highlightMatches();
    });
    hide();
}

void EditorFindBar::open(bool replace)
{
    m_replaceRow->setVisible(replace);
    show();
    const QString selected = m_editor->textCursor().selectedText();
    if (!selected.isEmpty() && !selected.contains(QChar::ParagraphSeparator))
        m_find->setText(selected);
    m_find->setFocus();
    m_find->selectAll();
    highlightMatches();
}

void EditorFindBar::close()
{
    hide();
    m_editor->setSearchMatches({});
    m_editor->setFocus();
}

bool EditorFindBar::findNext(bool backwards)
{
    if (m_find->text().isEmpty())
        return false;
    m_editor->session()->finishLoading();
    QTextDocument::FindFlags flags;
    if (backwards)
        flags |= QTextDocument::FindBackward;
    if (m_caseSensitive->isChecked())
        flags |= QTextDocument::FindCaseSensitively;
    QTextDocument *document = m_editor->document();
    QTextCursor found = document->find(m_find->text(), m_editor->textCursor(), flags);
    if (found.isNull()) {
        // Wrap around once.
        QTextCursor start(document);
        if (backwards)
            start.movePosition(QTextCursor::End);
        found = document->find(m_find->text(), start, flags);
    }
    if (found.isNull())
        return false;
    m_editor->setTextCursor(found);
    m_editor->centerCursor();
    return true;
}

void EditorFindBar::useSelection()
{
    const QString selected = m_editor->textCursor().selectedText();
    if (!selected.isEmpty())
        m_find->setText(selected);
}

void EditorFindBar::replaceCurrent()
{
    m_editor->session()->finishLoading();
    QTextCursor cursor = m_editor->textCursor();
    const Qt::CaseSensitivity sensitivity =
        m_caseSensitive->isChecked() ? Qt::CaseSensitive : Qt::CaseInsensitive;
    if (cursor.hasSelection() && cursor.selectedText().compare(m_find->text(), sensitivity) == 0)
        cursor.insertText(m_replace->text());
    findNext(false);
}

int EditorFindBar::replaceAll()
{
    if (m_find->text().isEmpty())
        return 0;
    m_editor->session()->finishLoading();
    QTextDocument::FindFlags flags;
    if (m_caseSensitive->isChecked())
        flags |= QTextDocument::FindCaseSensitively;
    QTextDocument *document = m_editor->document();
    QTextCursor edit(document);
    edit.beginEditBlock();
    int count = 0;
    QTextCursor found = document->find(m_find->text(), 0, flags);
    while (!found.isNull()) {
        found.insertText(m_replace->text());
        ++count;
        found = document->find(m_find->text(), found, flags);
    }
    edit.endEditBlock();
    return count;
}

void EditorFindBar::highlightMatches()
{
    QList<QTextEdit::ExtraSelection> matches;
    const QString needle = m_find->text();
    if (!needle.isEmpty()) {
        QTextDocument::FindFlags flags;
        if (m_caseSensitive->isChecked())
            flags |= QTextDocument::FindCaseSensitively;
        QTextDocument *document = m_editor->document();
        QTextCursor found = document->find(needle, 0, flags);
        while (!found.isNull() && matches.size() < matchLimit) {
            QTextEdit::ExtraSelection match;
            match.cursor = found;
            match.format.setBackground(m_editor->session()->theme().searchMatch);
            matches.append(match);
            found = document->find(needle, found, flags);
        }
    }
    m_count->setText(needle.isEmpty()               ? QString()
                     : matches.size() >= matchLimit ? QStringLiteral("%1+").arg(matchLimit)
                                                    : QString::number(matches.size()));
    m_editor->setSearchMatches(matches);
}

void EditorFindBar::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}
