// The bar above a code editor that lists its sections, functions, chunks and headings.
#pragma once

#include "OutlineItem.h"

#include <QComboBox>
#include <QTimer>

class CodeEditorController;

class EditorJumpBar : public QComboBox {
    Q_OBJECT
public:
    explicit EditorJumpBar(CodeEditorController &controller, QWidget *parent = nullptr);

    const QList<OutlineItem> &items() const { return m_items; }
    // Reads the outline again now.
    void refresh();

private:
    void followCaret();

    CodeEditorController &m_controller;
    QList<OutlineItem> m_items;
    QTimer m_refresh;
};
