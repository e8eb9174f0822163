// The workspace's plot operations: the store fed by "plot" events, renders at the pane's size and
// zoom, removal, export, and the theme R draws with.
#include "Workspace.h"

#include "PlotGeometry.h"
#include "Plots/PlotTheme.h"
#include "Settings.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QPointer>
#include <QScreen>

namespace {

// Tells the workspace when the application's palette (and with it the accent) changes.
class PaletteWatcher : public QObject {
public:
    PaletteWatcher(QObject *parent, std::function<void()> changed)
        : QObject(parent), m_changed(std::move(changed))
    {
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        // A filter on the application sees every object's events: the application's own is enough.
        if (watched == QCoreApplication::instance() && event->type() == QEvent::ApplicationPaletteChange)
            m_changed();
        return false;
    }

private:
    std::function<void()> m_changed;
};

QGuiApplication *guiApplication()
{
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance());
}

RArgument limits(const std::optional<PlotZoom> &zoom, bool x)
{
    if (!zoom)
        return RArgument();
    const PlotSpan &span = x ? zoom->x : zoom->y;
    return RArgument(QList<double>{span.from, span.to});
}

} // namespace

void Workspace::setUpPlots()
{
    QGuiApplication *app = guiApplication();
    if (!app)
        return;
    app->installEventFilter(new PaletteWatcher(this, [this] {
        if (sessionIsLive() && m_sessionReadyAt)
            refreshPlotTheme();
    }));
}

double Workspace::plotScale() const
{
    const QScreen *screen = guiApplication() ? QGuiApplication::primaryScreen() : nullptr;
    return screen ? screen->devicePixelRatio() : 2.0;
}

void Workspace::setInspectorTab(std::optional<InspectorTab> tab)
{
    if (tab == m_inspectorTab)
        return;
    m_inspectorTab = tab;
    emit inspectorTabChanged();
}

void Workspace::handlePlotEvent(const SessionEvent &event)
{
    const PlotStore::Page *page = m_plots.page(event.page);
    // The event's picture is at full extent: a zoomed page is drawn again at its zoom instead.
    if (page && page->zoom)
        renderPlot(event.page);
    else
        m_plots.update(event.page, event.file, event.isNew, PlotGeometry::fromJSON(event.geometry));
    m_console.append(ConsoleModel::Item::plot(event.page));
    // A redraw of an existing page doesn't pull the user away from another tab.
    if (event.isNew)
        setInspectorTab(InspectorTab::Plots);
}

void Workspace::plotResizeSettled()
{
    refreshPlotSize();
    if (const auto selected = m_plots.selectedPage())
        renderPlot(*selected);
}

void Workspace::renderPlot(int page)
{
    const PlotStore::Page *current = m_plots.page(page);
    const std::optional<PlotZoom> zoom = current ? current->zoom : std::nullopt;
    // A size of zero leaves the kernel at the size it was last told.
    m_session.request(
        QStringLiteral("renderPlot"),
        {RArgument(page), RArgument(double(m_lastPlotSize.width())),
         RArgument(double(m_lastPlotSize.height())), RArgument(plotScale())},
        {{QStringLiteral("xlim"), limits(zoom, true)}, {QStringLiteral("ylim"), limits(zoom, false)}},
        [self = QPointer<Workspace>(this), page, zoom](const RRequestResult &result) {
            if (!self || !result.ok())
                return;
            const std::optional<QString> file = result.value()[u"file"].stringValue();
            if (!file)
                return;
            // Zoomed again meanwhile: a newer render is on its way.
            const PlotStore::Page *now = self->m_plots.page(page);
            if (!now || now->zoom != zoom)
                return;
            self->m_plots.update(page, *file, false, PlotGeometry::fromJSON(result.value()[u"info"]));
        });
}

void Workspace::zoomPlot(int page, std::optional<PlotZoom> zoom)
{
    const PlotStore::Page *current = m_plots.page(page);
    if (!current || current->zoom == zoom)
        return;
    m_plots.setZoom(zoom, page);
    renderPlot(page);
}

void Workspace::removePlot(int page)
{
    m_plots.remove(page);
    m_session.request(QStringLiteral("removePlot"), {RArgument(page)}, {}, [](const RRequestResult &) {});
}

void Workspace::clearPlots()
{
    m_plots.reset();
    m_session.request(QStringLiteral("clearPlots"), {}, {}, [](const RRequestResult &) {});
}

void Workspace::showPlot(int page)
{
    if (!m_plots.page(page))
        return;
    m_plots.select(page);
    setInspectorTab(InspectorTab::Plots);
}

void Workspace::exportPlot(int page, const QString &path, const QString &format, QSizeF points, int dpi,
                           PlotExportCompletion completion)
{
    m_settings.setValue(Settings::plotExportDPI, dpi);
    requestPlotExport(page, path, format, points, dpi / 72.0,
                      [self = QPointer<Workspace>(this), completion](const RRequestResult &result) {
                          if (!self)
                              return;
                          if (!result.ok() && self->presentAlert) {
                              Alert alert;
                              alert.title = QStringLiteral("The plot could not be exported.");
                              if (result.error().kind == RSessionError::Kind::RError)
                                  alert.text = result.error().text;
                              alert.buttons = {QStringLiteral("OK")};
                              self->presentAlert(alert);
                          }
                          if (completion)
                              completion(result.ok());
                      });
}

void Workspace::requestPlotExport(int page, const QString &path, const QString &format, QSizeF points,
                                  double scale, std::function<void(const RRequestResult &)> answer)
{
    const PlotStore::Page *current = m_plots.page(page);
    const std::optional<PlotZoom> zoom = current ? current->zoom : std::nullopt;
    m_session.request(QStringLiteral("exportPlot"),
                      {RArgument(page), RArgument(path), RArgument(format), RArgument(points.width()),
                       RArgument(points.height())},
                      {{QStringLiteral("xlim"), limits(zoom, true)},
                       {QStringLiteral("ylim"), limits(zoom, false)},
                       {QStringLiteral("scale"), RArgument(scale)}},
                      std::move(answer));
}

void Workspace::refreshPlotTheme()
{
    const bool modern = PlotTheme::isModern(m_settings);
    QColor windowAccent;
    if (plotAccent)
        windowAccent = plotAccent();
    else if (guiApplication())
        windowAccent = QGuiApplication::palette().color(QPalette::Highlight);
    const QColor accent = PlotTheme::accent(windowAccent);
    const QStringList palette = PlotTheme::paletteHex(accent);
    const QString accentHex = PlotTheme::hex(accent);
    const QStringList theme =
        QStringList{modern ? QStringLiteral("true") : QStringLiteral("false"), accentHex} + palette;
    if (theme == m_appliedPlotTheme)
        return;
    m_appliedPlotTheme = theme;
    m_session.request(QStringLiteral("setTheme"),
                      {RArgument(modern), RArgument(accentHex), RArgument(palette)}, {},
                      [](const RRequestResult &) {});
}
