#include "EditorDocument.h"

#include "DecodedText.h"

#include <QFileInfo>

EditorDocument::EditorDocument(QObject *parent) : QObject(parent) {}

void EditorDocument::setPath(const std::optional<QString> &path)
{
    change(m_path, path);
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
    change(m_savedText, text);
}

void EditorDocument::setBreakpoints(const QSet<int> &lines)
{
    m_breakpoints = lines;
}

void EditorDocument::setUntitledIndex(int index)
{
    change(m_untitledIndex, index);
}

void EditorDocument::setSuggestedName(const std::optional<QString> &name)
{
    change(m_suggestedName, name);
}

void EditorDocument::setEncoding(TextFileEncoding encoding)
{
    change(m_encoding, encoding);
}

void EditorDocument::setLineEnding(LineEnding ending)
{
    change(m_lineEnding, ending);
}

void EditorDocument::setDiskState(DiskState state)
{
    change(m_diskState, state);
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

RSourceLanguage EditorDocument::language() const
{
    std::optional<QString> name =
        m_path ? std::optional<QString>(QFileInfo(*m_path).fileName()) : m_suggestedName;
    if (!name)
        return RSourceLanguage::r;
    const qsizetype dot = name->lastIndexOf(u'.');
    const QString extension = dot < 0 ? QString() : name->mid(dot + 1).toLower();
    if (extension == u"rmd" || extension == u"qmd" || extension == u"md" || extension == u"rmarkdown")
        return RSourceLanguage::rMarkdown;
    if (extension == u"r" || extension.isEmpty())
        return RSourceLanguage::r;
    return RSourceLanguage::plain;
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
