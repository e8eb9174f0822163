// The kind of a data column as the viewer shows it, read from R's class word: the header's short
// label, the inspector's name, and whether the column holds numbers (aligned right).
#pragma once

#include <QString>

class DataColumnKind {
public:
    enum class Case { Numeric, Integer, Character, Factor, Logical, Date, DateTime, List, Other };

    explicit DataColumnKind(const QString &rType);

    Case kind() const { return m_case; }
    // The R word an `Other` kind keeps; empty for the others.
    const QString &word() const { return m_word; }
    QString shortLabel() const;
    QString displayName() const;
    bool isNumeric() const;

    bool operator==(const DataColumnKind &) const = default;

private:
    Case m_case = Case::Other;
    QString m_word;
};
