// The editor's run commands: each turns a position in an editor into code and hands it to `run`.
#include "Workspace.h"

#include "Editor/CodeEditorController.h"
#include "Editor/RmdChunks.h"
#include "RLiteral.h"
#include "ToolLocator.h"

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

void Workspace::perform(EditorCommand command, CodeEditorController &editor)
{
    switch (command) {
    case EditorCommand::runLineOrSelection:
        runLineOrSelection(editor);
        break;
    case EditorCommand::runSection:
        runSection(editor);
        break;
    case EditorCommand::runAll:
        runAll(editor);
        break;
    case EditorCommand::runToCursor:
        runToCursor(editor);
        break;
    case EditorCommand::source:
        source(editor);
        break;
    case EditorCommand::inlineAssist:
    case EditorCommand::submit:
        // The console's submit goes through submitConsole; inline assist has no pane yet.
        break;
    }
}

void Workspace::runLineOrSelection(CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const CodeEditorController::Code selected = editor.selectedCode();
    if (!selected.text.trimmed().isEmpty()) {
        run(selected.text, originOf(editor), fileOf(editor), selected.startLine);
        return;
    }
    const CodeEditorController::Code statement = editor.currentStatement();
    const QString trimmed = statement.text.trimmed();
    const bool isFence =
        editor.language() == RSourceLanguage::rMarkdown && trimmed.startsWith(QStringLiteral("```"));
    if (!trimmed.isEmpty() && !isFence)
        run(statement.text, originOf(editor), fileOf(editor), statement.startLine);
    editor.moveCursorToNextStatement();
}

void Workspace::runSection(CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const CodeEditorController::Code section = editor.currentSection();
    run(section.text, originOf(editor), fileOf(editor), section.startLine);
}

void Workspace::runToCursor(CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const CodeEditorController::Code code = editor.textUpToCursor();
    run(code.text, originOf(editor), fileOf(editor), code.startLine);
}

void Workspace::runAll(CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    const QString text = editor.text();
    if (editor.language() == RSourceLanguage::rMarkdown) {
        for (const RmdChunks::Chunk &chunk : RmdChunks::all(text))
            run(chunk.code, originOf(editor), fileOf(editor), chunk.startLine);
        return;
    }
    run(text, originOf(editor), fileOf(editor), 1);
}

void Workspace::source(CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    if (editor.language() == RSourceLanguage::rMarkdown) {
        knit(editor);
        return;
    }
    QPointer<CodeEditorController> target(&editor);
    auto afterSave = [this, target](bool written) {
        if (!written || !target)
            return;
        if (target->language() == RSourceLanguage::plain || !target->filePath) {
            runAll(*target);
            return;
        }
        const QString code =
            QStringLiteral("source(%1, encoding = %2)")
                .arg(RLiteral::string(*target->filePath), RLiteral::string(target->encodingName));
        run(code, originOf(*target), std::nullopt, 1);
    };
    saveThen(editor, afterSave);
}

void Workspace::knit(CodeEditorController &editor)
{
    if (!flushed(editor))
        return;
    QPointer<CodeEditorController> target(&editor);
    saveThen(editor, [this, target](bool written) {
        if (!written || !target || !target->filePath)
            return;
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
            console().note(
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
        run(code, originOf(*target), std::nullopt, 1, [this, title, html](const ExecResult &result) {
            if (result.ok) {
                console().note(QStringLiteral("Knitted %1 to %2").arg(title, html));
                return;
            }
            if (result.interrupted)
                return;
            QString message = result.error ? result.error->message : result.output.trimmed();
            if (message.isEmpty())
                message = QStringLiteral("See the console for details.");
            console().note(QStringLiteral("“%1” did not knit. %2").arg(title, message));
        });
    });
}
