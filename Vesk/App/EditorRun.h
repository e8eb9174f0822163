// The editor's run commands: each turns a position in an editor into code and hands it to
// `Workspace::run`. Free functions over the workspace's public operations, so the hub does not
// grow with every way of running code.
#pragma once

#include <cstdint>

class CodeEditorController;
class Workspace;
enum class EditorCommand : std::uint8_t;

namespace EditorRun {

void perform(Workspace &workspace, EditorCommand command, CodeEditorController &editor);
void runLineOrSelection(Workspace &workspace, CodeEditorController &editor);
void runSection(Workspace &workspace, CodeEditorController &editor);
void runToCursor(Workspace &workspace, CodeEditorController &editor);
void runAll(Workspace &workspace, CodeEditorController &editor);
// Saves first; R Markdown knits instead.
void source(Workspace &workspace, CodeEditorController &editor);
void knit(Workspace &workspace, CodeEditorController &editor);

} // namespace EditorRun
