// The logic behind one code editor: ties a text document to an RSourceModel, restyles the lines that
// an edit made dirty (the shown ones at once, the rest in short slices from the event loop), keeps
// the outside text in step, and gives the keys their R-aware behaviour.
// It works on a QTextDocument alone; a view lends it its caret, so that the same session serves the
// script editor, the console input and read-only snippets, and can be driven without a window.
#pragma once

#include "EditorCommand.h"
#include "EditorConfiguration.h"
#include "EditorMode.h"
#include "EditorTheme.h"
#include "RSourceModel.h"
#include "RTextEdit.h"
#include "TextContext.h"

#include <QObject>
#include <QPointer>
#include <QTextCursor>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <utility>

class QTextBlock;
class QTextDocument;

class EditorSession : public QObject {
    Q_OBJECT
public:
    EditorSession(QTextDocument *document, EditorMode mode, QObject *parent = nullptr);
    ~EditorSession() override;

    EditorMode mode() const { return m_mode; }
    QTextDocument *document() const { return m_document; }
    RSourceLanguage language() const { return m_model.language(); }
    void setLanguage(RSourceLanguage language);
    const EditorConfiguration &configuration() const { return m_configuration; }
    void setConfiguration(const EditorConfiguration &configuration);
    const EditorTheme &theme() const { return m_theme; }
    void setTheme(const EditorTheme &theme);
    const RSourceModel &model() const { return m_model; }
    // The document's text with line-feed breaks, kept in step edit by edit.
    const QString &text() const { return m_text; }
    quint64 editGeneration() const { return m_editGeneration; }

    // The caret and selection. A view lends its own; without one the session keeps a cursor.
    std::function<QTextCursor()> cursorSource;
    std::function<void(const QTextCursor &)> cursorSink;
    // Whether the caret stands on the first (`up`) or last visual line; without a view, block lines.
    std::function<bool(bool up)> caretOnEdgeLine;
    // True while the input method composes text; restyling then waits.
    std::function<bool()> isComposing;
    // Scrolls the caret into view; set by a view.
    std::function<void()> revealCaret;
    // The first and last line a view shows; without a view no line is shown first.
    std::function<std::pair<qsizetype, qsizetype>()> visibleLines;
    QTextCursor textCursor() const;
    void setTextCursor(const QTextCursor &cursor);
    RTextRange selection() const;
    void setSelection(qsizetype location, qsizetype length = 0);

    // The outside text (a document's text, the console input), written after each edit; above
    // `immediateSyncLimit` units, after each burst of edits.
    static constexpr qsizetype immediateSyncLimit = 256 * 1024;
    std::function<void(const QString &)> textBinding;
    const QString &lastSyncedText() const { return m_lastSyncedText; }

    std::function<void(EditorCommand)> onCommand;
    std::function<std::optional<QString>(bool up)> onHistory;

    // Replaces the whole text from outside: no undo step, nothing written back; the shown lines are
    // styled when it returns, the rest follows in slices. A text of more than `fillThreshold` lines
    // goes in piecewise: its first `fillFirstLines` at once, the rest appended at the document's end
    // in slices of at most `sliceMilliseconds` (`isLoading` meanwhile). The fill never reaches the
    // undo stack, and the binding hears nothing of it: the outside text is the whole text already.
    void loadText(const QString &text);
    static constexpr qsizetype fillThreshold = 2000;
    static constexpr qsizetype fillFirstLines = 300;
    bool isLoading() const { return m_fill.has_value(); }
    // Puts the rest of a loading text into the document now.
    void finishLoading();
    // Finishes a loading text, restyles the shown lines and writes the text out now; every command
    // calls it first, so a command always sees the whole text.
    void flushPendingChanges();
    // Styles the dirty lines that are shown, then goes on for at most one slice's time; what is left
    // is styled in later slices, each of at most `sliceMilliseconds` on the main thread.
    void restyleDirtyLines();
    // Finishes a loading text and styles every dirty line now.
    void finishStyling();
    void restyleAll();
    static constexpr int sliceMilliseconds = 5;
    // A snapshot of the current text, after bringing the styling up to date.
    std::unique_ptr<RSourceSnapshot> snapshot();

    std::optional<RToken> token(qsizetype at) const;
    TextContext context(qsizetype at) const;
    QString wordBeforeCaret() const;
    // The bracket before or at the caret and its partner.
    std::optional<std::pair<qsizetype, qsizetype>> matchingBracketPair(qsizetype at);
    // The R name around an offset (identifier parts both ways), for double-click.
    RTextRange nameRange(qsizetype at) const;

    // Key handling; true when the key was fully handled.
    bool handleTypedCharacter(QChar character);
    std::optional<RTextRange> backwardDeletionRange() const;
    bool handleBackspace();
    bool handleReturn(bool shift);
    bool handleTab(bool backwards);
    bool handleVerticalArrow(bool up);
    bool handleEscape();
    void insertOperator(const QString &op);
    void toggleComment();
    void shiftLines(bool inward);
    void reindentLines();
    // False where no chunk can go (not R Markdown, or read-only).
    bool insertChunk();
    // Flushes and hands the command to `onCommand`.
    void perform(EditorCommand command);

    // Applies a structural edit as one undo step and sets the selection it gives.
    void apply(const RTextEdit &edit);
    void replace(RTextRange range, const QString &text);

    // Zero-based lines with a breakpoint; they move with the lines around them.
    const std::set<qsizetype> &breakpoints() const { return m_breakpoints; }
    void toggleBreakpoint(qsizetype line);
    void setBreakpoints(const std::set<qsizetype> &lines);

    // Published once per burst of changes by the deferred update.
    qsizetype cursorLine() const { return m_cursorLine; }
    qsizetype cursorColumn() const { return m_cursorColumn; }
    std::pair<qsizetype, qsizetype> selectedLines() const { return m_selectedLines; }
    const std::optional<std::pair<qsizetype, qsizetype>> &bracketPair() const { return m_bracketPair; }
    // Called by the view when the caret moves without an edit.
    void scheduleDeferredUpdate();

signals:
    void cursorStateChanged();
    void textSynced();
    void breakpointsChanged();
    // The whole text was replaced or restyled, e.g. after loadText (once the text is all in).
    void reloaded();
    // A piecewise load began or ended.
    void loadingChanged(bool loading);

private:
    void contentsChanged(int position, int removed, int added);
    void resync();
    void syncTextToBinding();
    void performDeferredUpdate();
    void styleBlock(const QTextBlock &block, const QList<RToken> &tokens);
    void styleDirty(const RSourceModel::Proceed &proceed);
    void styleShownLinesAhead(qsizetype first, qsizetype last);
    void styleSlice();
    void fillSlice(qint64 budgetNanoseconds);
    void cancelFill();
    void shiftBreakpoints(qsizetype line, qsizetype removedLines, qsizetype insertedLines);
    bool applyIfChanged(const RTextEdit &edit);
    void insertSoftTab();

    QPointer<QTextDocument> m_document;
    EditorMode m_mode;
    EditorConfiguration m_configuration;
    EditorTheme m_theme;
    RSourceModel m_model;
    QString m_text;
    QString m_lastSyncedText;
    QTextCursor m_ownCursor;
    quint64 m_editGeneration = 0;
    bool m_textNeedsSync = false;
    bool m_applyingExternalText = false;
    bool m_styling = false;
    bool m_deferredUpdateScheduled = false;
    QTimer m_styleSlice;
    // A text being loaded piecewise, and how much of it the document holds.
    struct Fill {
        QString text;
        qsizetype done = 0;
    };
    std::optional<Fill> m_fill;
    QTimer m_fillSlice;
    std::set<qsizetype> m_breakpoints;
    qsizetype m_cursorLine = 0;
    qsizetype m_cursorColumn = 0;
    std::pair<qsizetype, qsizetype> m_selectedLines{0, 0};
    std::optional<std::pair<qsizetype, qsizetype>> m_bracketPair;
};
