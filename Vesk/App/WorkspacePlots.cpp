#include "WorkspacePlots.h"

#include "Base/Settings.h"
#include "PlotGeometry.h"
#include "Plots/PlotTheme.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QPointer>
#include <QScreen>

#include <cmath>

namespace {

// Tells when the application's palette (and with it the accent) changes.
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

WorkspacePlots::WorkspacePlots(RSession &session, Settings &settings, QObject *parent)
    : QObject(parent), m_session(session), m_settings(settings)
{
    m_resizeTimer.setSingleShot(true);
    m_resizeTimer.setInterval(300);
    connect(&m_resizeTimer, &QTimer::timeout, this, &WorkspacePlots::resizeSettled);
    if (QGuiApplication *app = guiApplication())
        app->installEventFilter(new PaletteWatcher(this, [this] { emit paletteChanged(); }));
}

double WorkspacePlots::scale() const
{
    const QScreen *screen = guiApplication() ? QGuiApplication::primaryScreen() : nullptr;
    return screen ? screen->devicePixelRatio() : 2.0;
}

void WorkspacePlots::handleEvent(const SessionEvent &event)
{
    const PlotStore::Page *page = m_store.page(event.page);
    // The event's picture is at full extent: a zoomed page is drawn again at its zoom instead.
    if (page && page->zoom)
        render(event.page);
    else
        m_store.update(event.page, event.file, event.isNew, PlotGeometry::fromJSON(event.geometry));
}

void WorkspacePlots::resizeSettled()
{
    refreshSize();
    if (const auto selected = m_store.selectedPage())
        render(*selected);
}

void WorkspacePlots::refreshSize()
{
    // Nothing to tell R before the plot area has a size.
    if (m_lastSize.isEmpty())
        return;
    m_session.request(
        QStringLiteral("setPlotSize"),
        {RArgument(double(m_lastSize.width())), RArgument(double(m_lastSize.height())), RArgument(scale())},
        {}, [](const RRequestResult &) {});
}

void WorkspacePlots::areaResized(QSize size)
{
    const QSize rounded(int(std::lround(size.width() / 8.0)) * 8, int(std::lround(size.height() / 8.0)) * 8);
    if (rounded.width() < 120 || rounded.height() < 120 || rounded == m_lastSize)
        return;
    m_lastSize = rounded;
    m_resizeTimer.start();
}

void WorkspacePlots::render(int page)
{
    const PlotStore::Page *current = m_store.page(page);
    const std::optional<PlotZoom> zoom = current ? current->zoom : std::nullopt;
    // A size of zero leaves the kernel at the size it was last told.
    m_session.request(
        QStringLiteral("renderPlot"),
        {RArgument(page), RArgument(double(m_lastSize.width())), RArgument(double(m_lastSize.height())),
         RArgument(scale())},
        {{QStringLiteral("xlim"), limits(zoom, true)}, {QStringLiteral("ylim"), limits(zoom, false)}},
        [self = QPointer<WorkspacePlots>(this), page, zoom](const RRequestResult &result) {
            if (!self || !result.ok())
                return;
            const std::optional<QString> file = result.value()[u"file"].stringValue();
            if (!file)
                return;
            // Zoomed again meanwhile: a newer render is on its way.
            const PlotStore::Page *now = self->m_store.page(page);
            if (!now || now->zoom != zoom)
                return;
            self->m_store.update(page, *file, false, PlotGeometry::fromJSON(result.value()[u"info"]));
        });
}

void WorkspacePlots::zoom(int page, std::optional<PlotZoom> zoom)
{
    const PlotStore::Page *current = m_store.page(page);
    if (!current || current->zoom == zoom)
        return;
    m_store.setZoom(zoom, page);
    render(page);
}

void WorkspacePlots::remove(int page)
{
    m_store.remove(page);
    m_session.request(QStringLiteral("removePlot"), {RArgument(page)}, {}, [](const RRequestResult &) {});
}

void WorkspacePlots::clear()
{
    m_store.reset();
    m_session.request(QStringLiteral("clearPlots"), {}, {}, [](const RRequestResult &) {});
}

void WorkspacePlots::show(int page)
{
    if (!m_store.page(page))
        return;
    m_store.select(page);
    emit showRequested();
}

void WorkspacePlots::exportImage(int page, const QString &path, const QString &format, QSizeF points, int dpi,
                                 ExportCompletion completion)
{
    m_settings.setValue(Settings::plotExportDPI, dpi);
    requestExport(page, path, format, points, dpi / 72.0,
                  [self = QPointer<WorkspacePlots>(this), completion](const RRequestResult &result) {
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

void WorkspacePlots::requestExport(int page, const QString &path, const QString &format, QSizeF points,
                                   double scale, std::function<void(const RRequestResult &)> answer)
{
    const PlotStore::Page *current = m_store.page(page);
    const std::optional<PlotZoom> zoom = current ? current->zoom : std::nullopt;
    m_session.request(QStringLiteral("exportPlot"),
                      {RArgument(page), RArgument(path), RArgument(format), RArgument(points.width()),
                       RArgument(points.height())},
                      {{QStringLiteral("xlim"), limits(zoom, true)},
                       {QStringLiteral("ylim"), limits(zoom, false)},
                       {QStringLiteral("scale"), RArgument(scale)}},
                      std::move(answer));
}

void WorkspacePlots::refreshTheme()
{
    const bool modern = PlotTheme::isModern(m_settings);
    QColor windowAccent;
    if (accent)
        windowAccent = accent();
    else if (guiApplication())
        windowAccent = QGuiApplication::palette().color(QPalette::Highlight);
    const QColor themeAccent = PlotTheme::accent(windowAccent);
    const QStringList palette = PlotTheme::paletteHex(themeAccent);
    const QString accentHex = PlotTheme::hex(themeAccent);
    const QStringList theme =
        QStringList{modern ? QStringLiteral("true") : QStringLiteral("false"), accentHex} + palette;
    if (theme == m_appliedTheme)
        return;
    m_appliedTheme = theme;
    m_session.request(QStringLiteral("setTheme"),
                      {RArgument(modern), RArgument(accentHex), RArgument(palette)}, {},
                      [](const RRequestResult &) {});
}
