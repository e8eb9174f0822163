// The find and replace bar under a code editor.
#pragma once

#include <QWidget>

class CodeEditor;
class QLabel;
class QLineEdit;
class QToolButton;

class EditorFindBar : public QWidget {
    Q_OBJECT
public:
    explicit EditorFindBar(CodeEditor *editor, QWidget *parent = nullptr);

    void open(bool replace);
    void close();
    bool findNext(bool backwards);
    void useSelection();
    void replaceCurrent();
    int replaceAll();
    QLineEdit *findField() const { return m_find; }
    QLineEdit *replaceField() const { return m_replace; }

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void highlightMatches();

    CodeEditor *m_editor;
    QLineEdit *m_find = nullptr;
    QLineEdit *m_replace = nullptr;
    QToolButton *m_caseSensitive = nullptr;
    QLabel *m_count = nullptr;
    QWidget *m_replaceRow = nullptr;
};
