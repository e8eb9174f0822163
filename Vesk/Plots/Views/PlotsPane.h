// The plot history of a workspace: the selected page at the pane's size with its interaction overlay,
// previous and next with the page count, reset zoom, export, remove and clear; an empty state with
// suggestions when there is nothing yet.
#pragma once

#include <QImage>
#include <QWidget>

#include <functional>
#include <optional>

class PlotInteractionOverlay;
class PlotWindow;
class QLabel;
class QMenu;
class QStackedWidget;
class QToolButton;
class Workspace;

class PlotsPane : public QWidget {
    Q_OBJECT
public:
    explicit PlotsPane(Workspace &workspace, QWidget *parent = nullptr);

    // The export of a page in "png", "pdf" or "svg": asks for the size and the file, then R draws it.
    void exportPage(int page, const QString &format);

    QLabel *pageLabel() const { return m_pageLabel; }
    QToolButton *previousButton() const { return m_previous; }
    QToolButton *nextButton() const { return m_next; }
    QToolButton *resetZoomButton() const { return m_resetZoom; }
    QToolButton *openButton() const { return m_open; }
    QWidget *emptyState() const { return m_empty; }
    QWidget *canvas() const { return m_canvas; }
    PlotInteractionOverlay *overlay() const { return m_overlay; }

    // The save dialog's answer; replaceable so that a view test can export without a dialog.
    std::function<std::optional<QString>(const QString &suggested, const QString &format)> chooseExportPath;

    // The selected page in a window of its own, shown at once; R's vector drawing follows. None
    // without a picture.
    PlotWindow *openInWindow();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void refresh();
    void fillMenu(QMenu *menu);
    void resetZoom();
    std::optional<int> selected() const;

    Workspace &m_workspace;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_empty = nullptr;
    QWidget *m_canvas = nullptr;
    PlotInteractionOverlay *m_overlay = nullptr;
    QLabel *m_pageLabel = nullptr;
    QToolButton *m_previous = nullptr;
    QToolButton *m_next = nullptr;
    QToolButton *m_resetZoom = nullptr;
    QToolButton *m_open = nullptr;
    QToolButton *m_save = nullptr;
    QToolButton *m_remove = nullptr;
    QToolButton *m_more = nullptr;
    QImage m_image;
    int m_shownPage = 0;
    int m_shownRevision = -1;
};
