#include "CodeEditorPane.h"

#include "App/EditorRun.h"
#include "App/Workspace.h"
#include "CodeEditor.h"
#include "Editor/CodeEditorController.h"
#include "EditorFindBar.h"
#include "EditorJumpBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QVBoxLayout>

CodeEditorPane::CodeEditorPane(Workspace *workspace, QWidget *parent) : QWidget(parent)
{
    m_editor = new CodeEditor(EditorMode::document, this);
    m_controller = new CodeEditorController(this);
    m_controller->setSession(m_editor->session());
    m_controller->focusView = [this] { m_editor->setFocus(); };
    m_jumpBar = new EditorJumpBar(*m_controller, this);
    m_findBar = new EditorFindBar(m_editor, this);

    m_loading = new QLabel(QStringLiteral("Loading…"), this);
    m_loading->setObjectName(QStringLiteral("editorLoading"));
    m_loading->setForegroundRole(QPalette::PlaceholderText);
    m_loading->setVisible(m_editor->session()->isLoading());
    connect(m_editor->session(), &EditorSession::loadingChanged, m_loading, &QLabel::setVisible);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto *top = new QHBoxLayout;
    top->setContentsMargins(0, 0, 6, 0);
    top->addWidget(m_jumpBar, 0, Qt::AlignLeft);
    top->addStretch(1);
    top->addWidget(m_loading);
    layout->addLayout(top);
    layout->addWidget(m_editor, 1);
    layout->addWidget(m_findBar);
    setFocusProxy(m_editor);

    connect(m_editor, &CodeEditor::findRequested, m_findBar, &EditorFindBar::open);
    connect(m_editor, &CodeEditor::findNextRequested, m_findBar, &EditorFindBar::findNext);
    connect(m_editor, &CodeEditor::useSelectionForFind, m_findBar, &EditorFindBar::useSelection);
    if (workspace) {
        m_editor->followSettings(workspace->settings());
        QPointer<Workspace> target(workspace);
        m_editor->session()->onCommand = [this, target](EditorCommand command) {
            if (target)
                EditorRun::perform(*target, command, *m_controller);
        };
    }
}
