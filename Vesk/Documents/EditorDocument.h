// One open script: its text with line-feed breaks, what it was on disk, and how it goes back there.
// The object views observe; it holds no widget.
#pragma once

#include "FileStamp.h"
#include "LineEnding.h"
#include "RToken.h"
#include "TextFileEncoding.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QUuid>

#include <optional>

struct DecodedText;

// `changed`: the file differs from the stamp and the document has unsaved text.
enum class DiskState { current, changed, deleted };

class EditorDocument : public QObject {
    Q_OBJECT
public:
    explicit EditorDocument(QObject *parent = nullptr);

    QUuid id() const { return m_id; }

    // The standardised file path; absent for an untitled document.
    const std::optional<QString> &path() const { return m_path; }
    void setPath(const std::optional<QString> &path);

    const QString &text() const { return m_text; }
    // A change made in the editor: counts an edit. Views that show the text get `textChanged`.
    void setText(const QString &text);
    // Text put in from outside the editor (a reload, a restore): views take it over.
    void replaceText(const QString &text);
    const QString &savedText() const { return m_savedText; }
    void setSavedText(const QString &text);

    const QSet<int> &breakpoints() const { return m_breakpoints; }
    void setBreakpoints(const QSet<int> &lines);

    int untitledIndex() const { return m_untitledIndex; }
    void setUntitledIndex(int index);
    const std::optional<QString> &suggestedName() const { return m_suggestedName; }
    void setSuggestedName(const std::optional<QString> &name);

    TextFileEncoding encoding() const { return m_encoding; }
    void setEncoding(TextFileEncoding encoding);
    LineEnding lineEnding() const { return m_lineEnding; }
    void setLineEnding(LineEnding ending);

    DiskState diskState() const { return m_diskState; }
    void setDiskState(DiskState state);
    std::optional<FileStamp> diskStamp;

    // Autosave bookkeeping: the file's name, and the edit count it holds (-1 when none is written).
    std::optional<QString> autosaveName;
    int edits() const { return m_edits; }
    int autosavedEdits = -1;

    QString title() const;
    RSourceLanguage language() const;
    bool isDirty() const { return m_text != m_savedText; }
    bool needsSave() const;

    // Decoded file contents become both texts, with their format and stamp; the disk state is current.
    void load(const DecodedText &decoded, const std::optional<FileStamp> &stamp);

signals:
    void textChanged();
    // The text was set from outside the editor; an editor view replaces what it shows.
    void textReplaced();
    // Title, dirty mark, disk state or format changed.
    void stateChanged();

private:
    // Sets a field of the document's state, telling observers only when it changes.
    template <typename T> void change(T &field, const T &value)
    {
        if (field == value)
            return;
        field = value;
        emit stateChanged();
    }

    QUuid m_id = QUuid::createUuid();
    std::optional<QString> m_path;
    QString m_text;
    QString m_savedText;
    QSet<int> m_breakpoints;
    int m_untitledIndex = 0;
    std::optional<QString> m_suggestedName;
    TextFileEncoding m_encoding = TextFileEncoding::utf8;
    LineEnding m_lineEnding = LineEnding::lf;
    DiskState m_diskState = DiskState::current;
    int m_edits = 0;
};
