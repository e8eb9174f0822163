// The last lines of a child's standard error, for telling the user why it stopped. Blank lines are
// dropped and long lines cut, so the memory stays small whatever the child writes.
#pragma once

#include <QString>
#include <QStringList>

class LineTail {
public:
    static constexpr qsizetype maxLineLength = 400; // characters kept of one line

    explicit LineTail(qsizetype limit = 20);

    void append(const QString &text);
    // The kept lines and the unfinished one, the last `limit` of them, joined with line feeds.
    QString text() const;
    void removeAll();

    qsizetype limit() const { return m_limit; }
    const QStringList &lines() const { return m_lines; }

private:
    void finishLine();
    QString partialLine() const;

    qsizetype m_limit;
    QStringList m_lines;
    // The unfinished line without its leading blanks, clipped: past maxPartial units only whether
    // anything but blanks followed is remembered, which is all the trimming needs.
    QString m_partial;
    bool m_partialClipped = false;
};
