// A data document's tab: the grid over a DataGridModel with the filter field, header clicks that
// sort, Ctrl+C copying, the message over an empty grid, and the column inspector beside it. It
// only observes the model and calls its operations.
#pragma once

#include <QWidget>

class DataGridModel;
class DataColumnInspector;
class QLabel;
class QLineEdit;
class QTableView;
class QToolButton;

class DataGridView : public QWidget {
    Q_OBJECT
public:
    explicit DataGridView(DataGridModel &model, QWidget *parent = nullptr);

    DataGridModel &model() const { return m_model; }
    QTableView *table() const { return m_table; }
    QLineEdit *filterField() const { return m_filter; }
    DataColumnInspector *inspector() const { return m_inspector; }
    QLabel *messageLabel() const { return m_message; }

    // The selected cells as the model's tab-separated text, to the clipboard.
    void copySelection();

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void reportVisibleRows();
    void scheduleVisibleRows();
    void updateMessage();

    DataGridModel &m_model;
    QTableView *m_table = nullptr;
    QLineEdit *m_filter = nullptr;
    QLabel *m_message = nullptr;
    QLabel *m_counts = nullptr;
    QToolButton *m_inspectorToggle = nullptr;
    DataColumnInspector *m_inspector = nullptr;
    bool m_visibleUpdatePending = false;
};

// The selected column's profile: counts, statistics or range, its distribution, its most frequent
// values.
class DataColumnInspector : public QWidget {
    Q_OBJECT
public:
    explicit DataColumnInspector(DataGridModel &model, QWidget *parent = nullptr);

    // The shown text, for tests: the heading and each row's label and figure, a line each.
    QString text() const;

private:
    void rebuild();

    DataGridModel &m_model;
    QWidget *m_body = nullptr;
};
