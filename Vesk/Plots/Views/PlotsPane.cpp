#include "PlotsPane.h"

#include "App/Workspace.h"
#include "Base/Settings.h"
#include "PlotInteractionOverlay.h"
#include "PlotWindow.h"
#include "Plots/PlotExportOptions.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QUuid>
#include <QVBoxLayout>

namespace {

struct ExportFormat {
    QString word;
    QString title;
    QString filter;
    bool raster;
};

const QList<ExportFormat> &exportFormats()
{
    static const QList<ExportFormat> formats = {
        {QStringLiteral("png"), QStringLiteral("PNG"), QStringLiteral("PNG image (*.png)"), true},
        {QStringLiteral("pdf"), QStringLiteral("PDF"), QStringLiteral("PDF document (*.pdf)"), false},
        {QStringLiteral("svg"), QStringLiteral("SVG"), QStringLiteral("SVG image (*.svg)"), false},
    };
    return formats;
}

QToolButton *toolButton(const QString &text, const QString &tip, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(tip);
    button->setAutoRaise(true);
    return button;
}

} // namespace

PlotsPane::PlotsPane(Workspace &workspace, QWidget *parent) : QWidget(parent), m_workspace(workspace)
{
    m_previous = toolButton(QStringLiteral("‹"), QStringLiteral("Previous plot"), this);
    m_next = toolButton(QStringLiteral("›"), QStringLiteral("Next plot"), this);
    m_pageLabel = new QLabel(this);
    m_pageLabel->setObjectName(QStringLiteral("plotPageLabel"));
    m_resetZoom = toolButton(QStringLiteral("Reset Zoom"), QStringLiteral("Back to the whole plot"), this);
    m_open = toolButton(QStringLiteral("↗"), QStringLiteral("Open in a window"), this);
    m_save = toolButton(QStringLiteral("Save"), QStringLiteral("Save this plot"), this);
    m_save->setPopupMode(QToolButton::InstantPopup);
    auto *saveMenu = new QMenu(m_save);
    for (const ExportFormat &format : exportFormats())
        connect(saveMenu->addAction(QStringLiteral("Save as %1…").arg(format.title)), &QAction::triggered,
                this, [this, word = format.word] {
                    if (const auto page = selected())
                        exportPage(*page, word);
                });
    m_save->setMenu(saveMenu);
    m_remove = toolButton(QStringLiteral("✕"), QStringLiteral("Remove this plot"), this);
    // The page menu: what the toolbar has no room for.
    m_more = toolButton(QStringLiteral("⋯"), QStringLiteral("More"), this);
    m_more->setPopupMode(QToolButton::InstantPopup);
    auto *more = new QMenu(m_more);
    connect(more, &QMenu::aboutToShow, this, [this, more] {
        more->clear();
        fillMenu(more);
    });
    m_more->setMenu(more);

    auto *bar = new QHBoxLayout;
    bar->setContentsMargins(6, 4, 6, 4);
    bar->setSpacing(2);
    bar->addWidget(m_previous);
    bar->addWidget(m_pageLabel);
    bar->addWidget(m_next);
    bar->addStretch(1);
    bar->addWidget(m_resetZoom);
    bar->addWidget(m_open);
    bar->addWidget(m_save);
    bar->addWidget(m_remove);
    bar->addWidget(m_more);

    // Empty: what the pane is for, and a few plots to try.
    auto *empty = new QWidget(this);
    empty->setObjectName(QStringLiteral("plotsEmptyState"));
    m_empty = empty;
    auto *emptyLayout = new QVBoxLayout(empty);
    emptyLayout->addStretch(1);
    auto *headline = new QLabel(QStringLiteral("No plots yet"), empty);
    headline->setObjectName(QStringLiteral("paneTitle"));
    headline->setAlignment(Qt::AlignCenter);
    auto *explanation = new QLabel(
        QStringLiteral("Charts you draw in the console, a script or with an agent appear here."), empty);
    explanation->setWordWrap(true);
    explanation->setAlignment(Qt::AlignCenter);
    emptyLayout->addWidget(headline);
    emptyLayout->addWidget(explanation);
    const QList<std::pair<QString, QString>> suggestions = {
        {QStringLiteral("plot(cars)"), QStringLiteral("plot(cars)")},
        {QStringLiteral("hist(rnorm(1000))"), QStringLiteral("hist(rnorm(1000))")},
        {QStringLiteral("boxplot(len ~ supp, ToothGrowth)"),
         QStringLiteral("boxplot(len ~ supp, data = ToothGrowth)")},
    };
    for (const auto &[label, code] : suggestions) {
        auto *button = new QPushButton(label, empty);
        button->setFlat(true);
        connect(button, &QPushButton::clicked, this,
                [this, code] { m_workspace.run(code, ExecOrigin::console()); });
        emptyLayout->addWidget(button, 0, Qt::AlignHCenter);
    }
    emptyLayout->addStretch(2);

    m_canvas = new QWidget(this);
    m_canvas->setMinimumSize(60, 60);
    m_canvas->setAutoFillBackground(false);
    m_canvas->installEventFilter(this);
    m_canvas->setContextMenuPolicy(Qt::CustomContextMenu);
    m_overlay = new PlotInteractionOverlay(m_canvas);
    m_overlay->setContextMenuPolicy(Qt::NoContextMenu);
    m_overlay->onZoom = [this](const PlotZoom &zoom) {
        if (const auto page = selected())
            m_workspace.plots().zoom(*page, zoom);
    };
    m_overlay->onDoubleClick = [this] {
        const auto page = selected();
        if (!page)
            return;
        const PlotStore::Page *p = m_workspace.plots().store().page(*page);
        if (p && p->zoom)
            resetZoom();
        else
            openInWindow();
    };
    connect(m_canvas, &QWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        QMenu menu(this);
        fillMenu(&menu);
        menu.exec(m_canvas->mapToGlobal(at));
    });

    m_stack = new QStackedWidget(this);
    m_stack->addWidget(empty);
    m_stack->addWidget(m_canvas);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(bar);
    layout->addWidget(m_stack, 1);

    PlotStore &plots = m_workspace.plots().store();
    connect(m_previous, &QToolButton::clicked, &plots, [&plots] { plots.step(-1); });
    connect(m_next, &QToolButton::clicked, &plots, [&plots] { plots.step(1); });
    connect(m_resetZoom, &QToolButton::clicked, this, &PlotsPane::resetZoom);
    connect(m_open, &QToolButton::clicked, this, &PlotsPane::openInWindow);
    connect(m_remove, &QToolButton::clicked, this, [this] {
        if (const auto page = selected())
            m_workspace.plots().remove(*page);
    });
    connect(&plots, &PlotStore::changed, this, &PlotsPane::refresh);
    refresh();
}

std::optional<int> PlotsPane::selected() const
{
    return m_workspace.plots().store().selectedPage();
}

void PlotsPane::refresh()
{
    const PlotStore &plots = m_workspace.plots().store();
    const auto index = plots.selectedIndex();
    const PlotStore::Page *page = index ? &plots.pages()[*index] : nullptr;
    const qsizetype count = plots.pages().size();
    m_pageLabel->setText(index ? QStringLiteral("%1 / %2").arg(*index + 1).arg(count) : QString());
    m_previous->setEnabled(index && *index > 0);
    m_next->setEnabled(index && *index + 1 < count);
    for (QToolButton *button : {m_open, m_save, m_remove, m_more})
        button->setEnabled(page != nullptr);
    m_resetZoom->setVisible(page && page->zoom);
    m_stack->setCurrentIndex(page ? 1 : 0);
    if (!page) {
        m_image = QImage();
        m_shownPage = 0;
        m_shownRevision = -1;
        m_overlay->setPlot(std::nullopt, {});
        return;
    }
    // Decoding is the costly part: only a new picture is decoded.
    if (page->id != m_shownPage || page->revision != m_shownRevision) {
        // A page drawn for another pane size (before a resize, or while the pane was hidden) is
        // drawn again for this one when it is stepped to.
        const QSize expected = m_workspace.plots().lastSize() * m_workspace.plots().scale();
        const QSize drawn = page->imageSize;
        if (page->id != m_shownPage && !expected.isEmpty() && !drawn.isEmpty() &&
            (std::abs(drawn.width() - expected.width()) > 1 ||
             std::abs(drawn.height() - expected.height()) > 1))
            m_workspace.plots().render(page->id);
        m_image = plots.image(page->id);
        m_shownPage = page->id;
        m_shownRevision = page->revision;
        m_overlay->setPlot(page->geometry, QSizeF(m_image.size()));
        m_canvas->update();
    }
}

bool PlotsPane::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_canvas)
        return QWidget::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::Paint: {
        QPainter painter(m_canvas);
        painter.fillRect(m_canvas->rect(), Qt::white);
        if (!m_image.isNull()) {
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            painter.drawImage(m_overlay->imageRect(), m_image);
        }
        return true;
    }
    case QEvent::Resize:
    case QEvent::Show:
        m_overlay->setGeometry(m_canvas->rect());
        if (m_canvas->isVisible())
            m_workspace.plots().areaResized(m_canvas->size());
        break;
    default:
        break;
    }
    return QWidget::eventFilter(watched, event);
}

void PlotsPane::fillMenu(QMenu *menu)
{
    const auto page = selected();
    if (!page)
        return;
    const PlotStore::Page *p = m_workspace.plots().store().page(*page);
    if (p && p->zoom)
        connect(menu->addAction(QStringLiteral("Reset Zoom")), &QAction::triggered, this,
                &PlotsPane::resetZoom);
    connect(menu->addAction(QStringLiteral("Open in Window")), &QAction::triggered, this,
            &PlotsPane::openInWindow);
    connect(menu->addAction(QStringLiteral("Copy Image")), &QAction::triggered, this,
            [this] { QApplication::clipboard()->setImage(m_image); });
    for (const ExportFormat &format : exportFormats())
        connect(menu->addAction(QStringLiteral("Save as %1…").arg(format.title)), &QAction::triggered, this,
                [this, page = *page, word = format.word] { exportPage(page, word); });
    menu->addSeparator();
    connect(menu->addAction(QStringLiteral("Remove Plot")), &QAction::triggered, this,
            [this, page = *page] { m_workspace.plots().remove(page); });
    connect(menu->addAction(QStringLiteral("Clear All Plots")), &QAction::triggered, &m_workspace.plots(),
            &WorkspacePlots::clear);
}

void PlotsPane::resetZoom()
{
    if (const auto page = selected())
        m_workspace.plots().zoom(*page, std::nullopt);
}

PlotWindow *PlotsPane::openInWindow()
{
    const auto page = selected();
    if (!page)
        return nullptr;
    // The size the picture was drawn at, in points: the vector drawing has the same layout. A page
    // whose picture could not be read still opens, at the size the pane last drew at.
    QSize points = m_image.isNull() ? m_workspace.plots().lastSize()
                                    : (QSizeF(m_image.size()) / m_workspace.plots().scale()).toSize();
    if (points.isEmpty())
        points = QSize(504, 504);
    auto *window = new PlotWindow(*page, m_image, points, this);
    window->show();
    const QString path = QDir::temp().filePath(
        QStringLiteral("vesk-plot-%1.pdf").arg(QUuid::createUuid().toString(QUuid::WithoutBraces)));
    m_workspace.plots().requestExport(
        *page, path, QStringLiteral("pdf"), QSizeF(points), 1.0,
        [window = QPointer<PlotWindow>(window), path](const RRequestResult &result) {
            QByteArray pdf;
            if (QFile file(path); result.ok() && file.open(QIODevice::ReadOnly))
                pdf = file.readAll();
            // The file is ours to delete whatever happened, even when R wrote only part of it.
            QFile::remove(path);
            if (!window)
                return;
            if (!pdf.isEmpty())
                window->showVector(pdf);
            emit window->settled();
        });
    return window;
}

void PlotsPane::exportPage(int page, const QString &word)
{
    const auto format = std::find_if(exportFormats().begin(), exportFormats().end(),
                                     [&](const ExportFormat &f) { return f.word == word; });
    if (format == exportFormats().end() || !m_workspace.plots().store().page(page))
        return;
    const QSize shown =
        m_workspace.plots().lastSize().isEmpty() ? QSize(504, 504) : m_workspace.plots().lastSize();
    PlotExportOptions options(QSizeF(shown), m_workspace.settings());

    const QString folder = m_workspace.projectPath().value_or(m_workspace.workingDirectory());
    const QString suggested = QDir(folder).filePath(QStringLiteral("plot-%1.%2").arg(page).arg(format->word));
    std::optional<QString> path;
    if (chooseExportPath) {
        path = chooseExportPath(suggested, format->word);
    } else {
        QDialog dialog(this);
        dialog.setWindowTitle(QStringLiteral("Save as %1…").arg(format->title));
        auto *form = new QFormLayout(&dialog);
        auto *width = new QLineEdit(options.width, &dialog);
        auto *height = new QLineEdit(options.height, &dialog);
        form->addRow(QStringLiteral("Width in inches"), width);
        form->addRow(QStringLiteral("Height in inches"), height);
        QComboBox *resolution = nullptr;
        if (format->raster) {
            resolution = new QComboBox(&dialog);
            for (int dpi : {72, 144, 300, 600})
                resolution->addItem(QStringLiteral("%1 DPI").arg(dpi), dpi);
            resolution->setCurrentIndex(resolution->findData(options.dpi));
            form->addRow(QStringLiteral("Resolution:"), resolution);
        }
        auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
        buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("Choose File…"));
        connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
        connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
        form->addRow(buttons);
        if (dialog.exec() != QDialog::Accepted)
            return;
        options.width = width->text();
        options.height = height->text();
        if (resolution)
            options.dpi = resolution->currentData().toInt();
        const QString chosen = QFileDialog::getSaveFileName(
            this, QStringLiteral("Save as %1").arg(format->title), suggested, format->filter);
        if (!chosen.isEmpty())
            path = chosen;
    }
    if (!path)
        return;
    m_workspace.plots().exportImage(page, *path, format->word, options.points(), options.dpi);
}
