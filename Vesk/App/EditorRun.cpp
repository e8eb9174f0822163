#include "EditorRun.h"

#include "Editor/CodeEditorController.h"
#include "Editor/EditorCommand.h"
#include "Editor/RmdChunks.h"
#include "RLiteral.h"
#include "ToolLocator.h"
#include "Workspace.h"

#include <QDir>
#include <QFileInfo>

#include <QPointer>

namespace {

ExecOrigin originOf(const CodeEditorController &editor)
{
    return ExecOrigin::editor(editor.title);
}

// Runs are reported under the file, or under the title of an editor without one.
QString fileOf(const CodeEditorController &editor)
{
    return editor.filePath.value_or(editor.title);
}

// Takes the editor's last keystrokes into its text; false for an editor without a session.
bool flushed(CodeEditorController &editor)
{
    if (!editor.session())
        return false;
    editor.session()->flushPendingChanges();
    return true;
}

// Saves an editor's text when it has no file or unsaved changes, then goes on with `then(written)`.
void saveThen(CodeEditorController &editor, std::function<void(bool)> then)
{
    const bool modified = editor.isModified ? editor.isModified() : true;
    if (editor.filePath && !modified) {
        then(true);
        return;
    }
    if (editor.save)
        editor.save(std::move(then));
}

} // namespace

void EditorRun::perform(Workspace &workspace, EditorCommand command, CodeEditorController &editor)
{
    switch (command) {
    case EditorCommand::runLineOrSelection:
        runLineOrSelection(workspace, editor);
        break;
    case EditorCommand::runSection:
        runSection(workspace, editor);
        break;
    case EditorCommand::runAll:
        runAll(workspace, editor);
        break;
    case EditorCommand::runToCursor:
        runToCursor(workspace, editor);
        break;
    case EditorCommand::source:
        source(workspace, editor);
        break;
    case EditorCommand::inlineAssist:
    case EditorCommand::submit:
        // The console's submit goes through submitConsole; inline assist has no pane yet.
        break;
    }
}

void EditorRun::runLineOrSelection(Workspace &workspace, CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const CodeEditorController::Code selected = editor.selectedCode();
    if (!selected.text.trimmed().isEmpty()) {
        workspace.run(selected.text, originOf(editor), fileOf(editor), selected.startLine);
        return;
    }
    const CodeEditorController::Code statement = editor.currentStatement();
    const QString trimmed = statement.text.trimmed();
    const bool isFence =
        editor.language() == RSourceLanguage::rMarkdown && trimmed.startsWith(QStringLiteral("```"));
    if (!trimmed.isEmpty() && !isFence)
        workspace.run(statement.text, originOf(editor), fileOf(editor), statement.startLine);
    editor.moveCursorToNextStatement();
}

void EditorRun::runSection(Workspace &workspace, CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const CodeEditorController::Code section = editor.currentSection();
    workspace.run(section.text, originOf(editor), fileOf(editor), section.startLine);
}

void EditorRun::runToCursor(Workspace &workspace, CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const CodeEditorController::Code code = editor.textUpToCursor();
    workspace.run(code.text, originOf(editor), fileOf(editor), code.startLine);
}

void EditorRun::runAll(Workspace &workspace, CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const QString text = editor.text();
    if (editor.language() == RSourceLanguage::rMarkdown) {
        for (const RmdChunks::Chunk &chunk : RmdChunks::all(text))
            workspace.run(chunk.code, originOf(editor), fileOf(editor), chunk.startLine);
        return;
    }
    workspace.run(text, originOf(editor), fileOf(editor), 1);
}

void EditorRun::source(Workspace &workspace, CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    if (editor.language() == RSourceLanguage::rMarkdown) {
        knit(workspace, editor);
        return;
    }
    QPointer<CodeEditorController> target(&editor);
    auto afterSave = [self = QPointer<Workspace>(&workspace), target](bool written) {
        if (!written || !target || !self)
            return;
        Workspace &workspace = *self;
        if (target->language() == RSourceLanguage::plain || !target->filePath) {
            runAll(workspace, *target);
            return;
        }
        const QString code =
            QStringLiteral("source(%1, encoding = %2)")
                .arg(RLiteral::string(*target->filePath), RLiteral::string(target->encodingName));
        workspace.run(code, originOf(*target), std::nullopt, 1);
    };
    saveThen(editor, afterSave);
}

void EditorRun::knit(Workspace &workspace, CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    QPointer<CodeEditorController> target(&editor);
    saveThen(editor, [self = QPointer<Workspace>(&workspace), target](bool written) {
        if (!written || !target || !target->filePath || !self)
            return;
        Workspace &workspace = *self;
        const QString path = *target->filePath;
        const QFileInfo file(path);
        const QString html = file.dir().filePath(file.completeBaseName() + QStringLiteral(".html"));
        QString code;
        const auto quarto = ToolLocator::quarto();
        if (file.suffix().toLower() == QStringLiteral("qmd") && quarto) {
            code = QStringLiteral("local({\n  status <- system2(") + RLiteral::string(*quarto) +
                   QStringLiteral(", c(\"render\", shQuote(") + RLiteral::string(path) +
                   QStringLiteral(
                       ")))\n  if (status != 0) stop(\"Quarto stopped with exit status \", status, \". Its "
                       "messages are above.\", call. = FALSE)\n  browseURL(") +
                   RLiteral::string(html) + QStringLiteral(")\n})");
        } else if (!ToolLocator::pandocDirectory()) {
            workspace.console().note(
                QStringLiteral("Pandoc is needed to knit. R Markdown uses Pandoc to turn a report into "
                               "HTML. Install it once, then the report knits right away. It is the "
                               "distribution’s package “pandoc”; or Download Pandoc: "
                               "https://pandoc.org/installing.html"));
            return;
        } else {
            code = QStringLiteral("browseURL(rmarkdown::render(") + RLiteral::string(path) +
                   QStringLiteral(", envir = new.env(parent = globalenv()), quiet = TRUE))");
        }
        const QString title = target->title;
        workspace.run(code, originOf(*target), std::nullopt, 1,
                      [self, title, html](const ExecResult &result) {
                          if (!self)
                              return;
                          if (result.ok) {
                              self->console().note(QStringLiteral("Knitted %1 to %2").arg(title, html));
                              return;
                          }
                          if (result.interrupted)
                              return;
                          QString message = result.error ? result.error->message : result.output.trimmed();
                          if (message.isEmpty())
                              message = QStringLiteral("See the console for details.");
                          self->console().note(QStringLiteral("“%1” did not knit. %2").arg(title, message));
                      });
    });
}
