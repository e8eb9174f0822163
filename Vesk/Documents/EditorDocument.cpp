#include "EditorDocument.h"

#include "DecodedText.h"

#include <QFileInfo>

EditorDocument::EditorDocument(QObject *parent) : QObject(parent) {}

void EditorDocument::setPath(const std::optional<QString> &path)
{
    if (path == m_path)
        return;
    m_path = path;
    emit stateChanged();
}

void EditorDocument::setText(const QString &text)
{
    if (text == m_text)
        return;
    const bool wasDirty = isDirty();
    m_text = text;
    ++m_edits;
    emit textChanged();
    if (wasDirty != isDirty())
        emit stateChanged();
}

void EditorDocument::replaceText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    ++m_edits;
    emit textReplaced();
    emit textChanged();
    emit stateChanged();
}

void EditorDocument::setSavedText(const QString &text)
{
    if (text == m_savedText)
        return;
    m_savedText = text;
    emit stateChanged();
}

void EditorDocument::setBreakpoints(const QSet<int> &lines)
{
    m_breakpoints = lines;
}

void EditorDocument::setUntitledIndex(int index)
{
    if (index == m_untitledIndex)
        return;
    m_untitledIndex = index;
    emit stateChanged();
}

void EditorDocument::setSuggestedName(const std::optional<QString> &name)
{
    if (name == m_suggestedName)
        return;
    m_suggestedName = name;
    emit stateChanged();
}

void EditorDocument::setEncoding(TextFileEncoding encoding)
{
    if (encoding == m_encoding)
        return;
    m_encoding = encoding;
    emit stateChanged();
}

void EditorDocument::setLineEnding(LineEnding ending)
{
    if (ending == m_lineEnding)
        return;
    m_lineEnding = ending;
    emit stateChanged();
}

void EditorDocument::setDiskState(DiskState state)
{
    if (state == m_diskState)
        return;
    m_diskState = state;
    emit stateChanged();
}

QString EditorDocument::title() const
{
    if (m_path)
        return QFileInfo(*m_path).fileName();
    if (m_suggestedName)
        return *m_suggestedName;
    if (m_untitledIndex < 2)
        return QStringLiteral("Untitled");
    return QStringLiteral("Untitled %1").arg(m_untitledIndex);
}

CodeLanguage EditorDocument::language() const
{
    std::optional<QString> name =
        m_path ? std::optional<QString>(QFileInfo(*m_path).fileName()) : m_suggestedName;
    if (!name)
        return CodeLanguage::r;
    const qsizetype dot = name->lastIndexOf(u'.');
    const QString extension = dot < 0 ? QString() : name->mid(dot + 1).toLower();
    if (extension == u"rmd" || extension == u"qmd" || extension == u"md" || extension == u"rmarkdown")
        return CodeLanguage::rMarkdown;
    if (extension == u"r" || extension.isEmpty())
        return CodeLanguage::r;
    return CodeLanguage::plain;
}

bool EditorDocument::needsSave() const
{
    return isDirty() || (m_path && m_diskState == DiskState::deleted);
}

void EditorDocument::load(const DecodedText &decoded, const std::optional<FileStamp> &stamp)
{
    m_savedText = decoded.text;
    m_encoding = decoded.encoding;
    m_lineEnding = decoded.lineEnding;
    diskStamp = stamp;
    m_diskState = DiskState::current;
    if (decoded.text != m_text) {
        m_text = decoded.text;
        ++m_edits;
        emit textReplaced();
        emit textChanged();
    }
    emit stateChanged();
}
