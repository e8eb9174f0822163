// The last lines of a child's standard error, trimmed and bounded, for messages about failures.
#pragma once

#include <QString>
#include <QStringList>

class LineTail {
public:
    explicit LineTail(qsizetype limit = 20) : m_limit(qMax<qsizetype>(1, limit)) {}

    void append(const QString &text);
    QString text() const;
    void removeAll();

    const QStringList &lines() const { return m_lines; }
    const QString &partial() const { return m_partial; }

private:
    qsizetype m_limit;
    QStringList m_lines;
    QString m_partial;
};
