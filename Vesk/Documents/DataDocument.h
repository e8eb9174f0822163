// A data view tab: the R expression whose value it shows. The grid itself comes with the data viewer;
// until then the tab shows a placeholder.
#pragma once

#include <QObject>
#include <QString>
#include <QUuid>

class DataDocument : public QObject {
    Q_OBJECT
public:
    DataDocument(const QString &expr, const QString &title, QObject *parent = nullptr)
        : QObject(parent), m_expr(expr), m_title(title)
    {
    }

    QUuid id() const { return m_id; }
    const QString &expr() const { return m_expr; }
    const QString &title() const { return m_title; }

    // A view whose object the kernel pinned for it, released when the tab closes.
    bool holdsPinnedObject() const { return m_expr.startsWith(QStringLiteral(".vesk$views[[")); }

private:
    QUuid m_id = QUuid::createUuid();
    QString m_expr;
    QString m_title;
};
