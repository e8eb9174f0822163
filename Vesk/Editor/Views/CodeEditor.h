// The text view of an editor session: keys go to the session first, the gutter shows line numbers
// and breakpoints, and the current line, the bracket pair and search matches are drawn as extra
// selections. The view keeps no logic of its own.
#pragma once

#include "Editor/EditorConfiguration.h"
#include "Editor/EditorMode.h"
#include "Editor/EditorSession.h"

#include <QPlainTextEdit>

class Settings;

class CodeEditor : public QPlainTextEdit {
    Q_OBJECT
public:
    explicit CodeEditor(EditorMode mode, QWidget *parent = nullptr);

    EditorSession *session() const { return m_session; }
    // Reads the editor settings now and whenever one changes.
    void followSettings(Settings &settings);
    void applyConfiguration(const EditorConfiguration &configuration);
    // Picks the light or dark colours for the current look.
    void applyTheme();
    void setSearchMatches(const QList<QTextEdit::ExtraSelection> &matches);

    int gutterWidth() const;
    void paintGutter(QPaintEvent *event);
    void gutterClicked(int y);

signals:
    // Ctrl+F (false) or the replace bar (true).
    void findRequested(bool replace);
    // Ctrl+G, Ctrl+Shift+G, Ctrl+E.
    void findNextRequested(bool backwards);
    void useSelectionForFind();

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void inputMethodEvent(QInputMethodEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    bool handleKeyEquivalent(QKeyEvent *event, bool dryRun);
    void updateGutterWidth();
    void updateGutter(const QRect &rect, int dy);
    void updateExtraSelections();

    EditorSession *m_session = nullptr;
    QWidget *m_gutter = nullptr;
    EditorConfiguration m_configuration;
    QList<QTextEdit::ExtraSelection> m_searchMatches;
    bool m_composing = false;
};
