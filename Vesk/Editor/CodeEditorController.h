// The handle by which the rest of the application reaches an editor: the code at the caret for the
// run commands, moving on after a run, and the structural commands. Its owner (a document, or a
// scratch editor) tells it the title and file that runs are reported under.
#pragma once

#include "EditorCommand.h"
#include "EditorSession.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <optional>

class CodeEditorController : public QObject {
    Q_OBJECT
public:
    // A piece of the text with the one-based line it starts on.
    struct Code {
        QString text;
        int startLine = 1;
        RTextRange range;
    };

    explicit CodeEditorController(QObject *parent = nullptr);

    EditorSession *session() const { return m_session; }
    void setSession(EditorSession *session);

    // What runs are reported under: the title, and the file if there is one.
    QString title = QStringLiteral("Untitled");
    std::optional<QString> filePath;
    // The encoding's name in R's terms, for source().
    QString encodingName = QStringLiteral("UTF-8");
    // Saves the text before a source and tells whether it was written (not when refused or cancelled).
    std::function<void(std::function<void(bool)> done)> save;
    // Whether the text differs from what was last saved.
    std::function<bool()> isModified;
    // Gives the editor's view the keyboard focus.
    std::function<void()> focusView;

    // One-based, published after each burst of changes.
    int cursorLine() const { return m_cursorLine; }
    int cursorColumn() const { return m_cursorColumn; }

    QString text() const;
    RSourceLanguage language() const;
    Code currentStatement() const;
    void moveCursorToNextStatement();
    Code currentSection() const;
    Code textUpToCursor() const;
    // The selection's text and the one-based line it starts on; empty without a selection.
    Code selectedCode() const;

    void toggleComment();
    void shiftLines(bool inward);
    void reindentLines();
    bool insertChunk();
    void focus();
    void reloadText(const QString &text);
    // Puts the caret on a one-based line and column (both kept inside the text) and scrolls there.
    void revealLine(int line, int column = 1);

signals:
    void cursorChanged();

private:
    QPointer<EditorSession> m_session;
    QMetaObject::Connection m_cursorConnection;
    int m_cursorLine = 1;
    int m_cursorColumn = 1;
};
