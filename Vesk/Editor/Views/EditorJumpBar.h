// The bar above a code editor that lists its sections, functions, chunks and headings.
#pragma once

#include "OutlineItem.h"

#include <QComboBox>
#include <QTimer>

class CodeEditorController;
class QStringListModel;

class EditorJumpBar : public QComboBox {
    Q_OBJECT
public:
    explicit EditorJumpBar(CodeEditorController &controller, QWidget *parent = nullptr);

    const QList<OutlineItem> &items() const { return m_items; }
    // Reads the outline again: at once, or for a text of `backgroundScanLength` units or more, off the
    // main thread (a scan of 100,000 lines takes about 20 ms).
    void refresh();
    static constexpr qsizetype backgroundScanLength = 200'000;
    // Above this many entries the box is as wide as its minimum contents length, not its widest.
    static constexpr qsizetype measuredEntries = 500;

private:
    void showItems(const QList<OutlineItem> &items);
    void followCaret();

    CodeEditorController &m_controller;
    QList<OutlineItem> m_items;
    QStringListModel *m_labels = nullptr;
    QTimer m_refresh;
    quint64 m_generation = 0;
};
