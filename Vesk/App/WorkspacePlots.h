// The plot state of a workspace in one place: the store fed by "plot" events, the size and scale R
// draws at, the theme last sent, and the operations that ask R to render, zoom, remove and export.
// The workspace owns it and tells it when R is ready; it never reaches back into the workspace.
#pragma once

#include "Base/Alert.h"
#include "Plots/PlotStore.h"
#include "Session/RSession.h"

#include <QColor>
#include <QObject>
#include <QSize>
#include <QSizeF>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <optional>

class Settings;

class WorkspacePlots : public QObject {
    Q_OBJECT
public:
    using ExportCompletion = std::function<void(bool ok)>;

    WorkspacePlots(RSession &session, Settings &settings, QObject *parent = nullptr);

    PlotStore &store() { return m_store; }
    const PlotStore &store() const { return m_store; }

    // The window's accent colour for the theme; without it, the application palette's highlight.
    std::function<QColor()> accent;
    // How a failed export reaches the user; unset, it is not shown.
    std::function<void(const Alert &)> presentAlert;

    // A "plot" event: the page's new picture, or a render at its zoom for a zoomed page.
    void handleEvent(const SessionEvent &event);
    void render(int page);
    void zoom(int page, std::optional<PlotZoom> zoom);
    void remove(int page);
    void clear();
    // Selects a page still in the store and asks for the Plots tab: a click on a console thumbnail.
    void show(int page);
    void exportImage(int page, const QString &path, const QString &format, QSizeF points, int dpi,
                     ExportCompletion completion = {});
    // The kernel's export of a page at its zoom, alone: no setting stored and no alert.
    void requestExport(int page, const QString &path, const QString &format, QSizeF points, double scale,
                       std::function<void(const RRequestResult &)> answer);

    // What R is told: the size of the plot area (settled 300 ms after the last resize) and the theme,
    // sent again only when it changes; `forgetTheme` for a new R, which has none yet.
    void areaResized(QSize size);
    void refreshSize();
    void refreshTheme();
    void forgetTheme() { m_appliedTheme.clear(); }
    const QStringList &appliedTheme() const { return m_appliedTheme; }
    QSize lastSize() const { return m_lastSize; }
    // The backing scale of rendered plots: the main screen's, or 2 without one.
    double scale() const;

signals:
    // A page was picked to be seen (a click on a thumbnail).
    void showRequested();
    // The application's palette, and with it the accent, changed.
    void paletteChanged();

private:
    void resizeSettled();

    RSession &m_session;
    Settings &m_settings;
    PlotStore m_store;
    QSize m_lastSize;
    QTimer m_resizeTimer;
    QStringList m_appliedTheme;
};
