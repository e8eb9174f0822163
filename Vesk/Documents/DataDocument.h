// A data view tab: the R expression whose value it shows. The grid's model is a child of the
// document, made by the tabs (which can reach R), so it lives exactly as long as the tab's item.
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

    // R may have changed the object: the grid reads its pages again.
    void reload() { emit reloadRequested(); }

signals:
    void reloadRequested();

private:
    QUuid m_id = QUuid::createUuid();
    QString m_expr;
    QString m_title;
};
