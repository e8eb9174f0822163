#include "DataGridView.h"

#include "Data/DataFormat.h"
#include "Data/DataGridModel.h"

#include <QApplication>
#include <QClipboard>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QScrollArea>
#include <QScrollBar>
#include <QShortcut>
#include <QSplitter>
#include <QTableView>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

constexpr int sparklineHeight = 14;

void drawBars(QPainter &painter, const QRect &area, const QList<double> &heights, const QColor &color)
{
    if (heights.isEmpty() || area.width() < 2 || area.height() < 2)
        return;
    const double width = double(area.width()) / double(heights.size());
    for (qsizetype i = 0; i < heights.size(); ++i) {
        const int h = std::max(heights[i] > 0 ? 1 : 0, int(heights[i] * area.height() + 0.5));
        const QRectF bar(area.left() + i * width + 0.5, area.bottom() + 1 - h, std::max(width - 1.0, 1.0), h);
        painter.fillRect(bar, color);
    }
}

// Column headers of two lines (name and sort, kind) over the column's small chart.
class DataHeaderView : public QHeaderView {
public:
    explicit DataHeaderView(QWidget *parent) : QHeaderView(Qt::Horizontal, parent) {}

protected:
    QSize sectionSizeFromContents(int logicalIndex) const override
    {
        QSize size = QHeaderView::sectionSizeFromContents(logicalIndex);
        size.setHeight(size.height() + sparklineHeight + 2);
        return size;
    }
    void paintSection(QPainter *painter, const QRect &rect, int logicalIndex) const override
    {
        painter->save();
        QHeaderView::paintSection(painter, rect.adjusted(0, 0, 0, -sparklineHeight - 2), logicalIndex);
        painter->restore();
        const QRect chart(rect.left() + 4, rect.bottom() - sparklineHeight, rect.width() - 8,
                          sparklineHeight - 2);
        painter->fillRect(
            QRect(rect.left(), rect.bottom() - sparklineHeight - 2, rect.width(), sparklineHeight + 3),
            palette().button());
        const QList<double> heights =
            model()
                ->headerData(logicalIndex, Qt::Horizontal, DataGridModel::SparklineRole)
                .value<QList<double>>();
        QColor color = palette().color(QPalette::Highlight);
        color.setAlphaF(0.6);
        drawBars(*painter, chart, heights, color);
    }
};

// Bars over a fixed height, one per bin or value.
class BarChart : public QWidget {
public:
    BarChart(QList<double> heights, QWidget *parent) : QWidget(parent), m_heights(std::move(heights))
    {
        setMinimumHeight(56);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        drawBars(painter, rect().adjusted(0, 2, 0, -2), m_heights, palette().color(QPalette::Highlight));
    }

private:
    QList<double> m_heights;
};

QLabel *sectionTitle(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

} // namespace

DataGridView::DataGridView(DataGridModel &model, QWidget *parent) : QWidget(parent), m_model(model)
{
    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(QStringLiteral("Filter rows"));
    m_filter->setClearButtonEnabled(true);
    m_filter->setText(model.filter());
    m_counts = new QLabel(this);
    m_counts->setForegroundRole(QPalette::PlaceholderText);
    auto *reload = new QToolButton(this);
    reload->setText(QStringLiteral("Reload"));
    m_inspectorToggle = new QToolButton(this);
    m_inspectorToggle->setText(QStringLiteral("Column profile"));
    m_inspectorToggle->setCheckable(true);
    m_inspectorToggle->setChecked(true);

    auto *bar = new QHBoxLayout;
    bar->setContentsMargins(6, 4, 6, 4);
    bar->addWidget(m_filter, 1);
    bar->addWidget(m_counts);
    bar->addWidget(reload);
    bar->addWidget(m_inspectorToggle);

    m_table = new QTableView(this);
    m_table->setHorizontalHeader(new DataHeaderView(m_table));
    m_table->setModel(&model);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setWordWrap(false);
    m_table->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_table->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    QHeaderView *rowsHeader = m_table->verticalHeader();
    rowsHeader->setSectionResizeMode(QHeaderView::Fixed);
    rowsHeader->setDefaultSectionSize(m_table->fontMetrics().height() + 6);
    rowsHeader->setSectionsClickable(false);
    QHeaderView *header = m_table->horizontalHeader();
    header->setSectionsClickable(true);
    header->setHighlightSections(false);
    header->setDefaultSectionSize(110);
    header->setMinimumSectionSize(60);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);

    m_message = new QLabel(this);
    m_message->setAlignment(Qt::AlignCenter);
    m_message->setWordWrap(true);
    m_message->setForegroundRole(QPalette::PlaceholderText);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);

    m_inspector = new DataColumnInspector(model, this);
    auto *scroll = new QScrollArea(this);
    scroll->setWidget(m_inspector);
    scroll->setWidgetResizable(true);
    scroll->setMinimumWidth(220);

    auto *gridColumn = new QWidget(this);
    auto *gridLayout = new QVBoxLayout(gridColumn);
    gridLayout->setContentsMargins(0, 0, 0, 0);
    gridLayout->setSpacing(0);
    gridLayout->addWidget(m_message);
    gridLayout->addWidget(m_table, 1);

    auto *split = new QSplitter(Qt::Horizontal, this);
    split->addWidget(gridColumn);
    split->addWidget(scroll);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 0);
    split->setSizes({900, 260});

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(bar);
    layout->addWidget(split, 1);

    connect(m_filter, &QLineEdit::textChanged, &m_model, &DataGridModel::setFilter);
    connect(reload, &QToolButton::clicked, &m_model, &DataGridModel::reload);
    connect(m_inspectorToggle, &QToolButton::toggled, scroll, &QWidget::setVisible);
    connect(header, &QHeaderView::sectionClicked, this, [this](int section) {
        m_model.cycleSort(section);
        m_model.setSelectedColumn(section);
    });
    connect(m_table, &QTableView::clicked, this,
            [this](const QModelIndex &index) { m_model.setSelectedColumn(index.column()); });
    connect(m_table->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex &index) {
                if (index.isValid())
                    m_model.setSelectedColumn(index.column());
            });
    connect(&m_model, &DataGridModel::messageChanged, this, &DataGridView::updateMessage);
    connect(&m_model, &DataGridModel::modelReset, this, &DataGridView::updateMessage);
    connect(&m_model, &DataGridModel::rowsInserted, this, &DataGridView::updateMessage);
    connect(&m_model, &DataGridModel::rowsRemoved, this, &DataGridView::updateMessage);
    connect(&m_model, &DataGridModel::viewReset, this, [this] {
        m_table->clearSelection();
        m_table->scrollToTop();
        scheduleVisibleRows();
    });
    connect(m_table->verticalScrollBar(), &QScrollBar::valueChanged, this,
            &DataGridView::scheduleVisibleRows);
    connect(&m_model, &DataGridModel::modelReset, this, &DataGridView::scheduleVisibleRows);
    connect(&m_model, &DataGridModel::rowsInserted, this, &DataGridView::scheduleVisibleRows);
    connect(&m_model, &DataGridModel::rowsRemoved, this, &DataGridView::scheduleVisibleRows);

    auto *copy = new QShortcut(QKeySequence::Copy, m_table, nullptr, nullptr, Qt::WidgetWithChildrenShortcut);
    connect(copy, &QShortcut::activated, this, &DataGridView::copySelection);

    updateMessage();
    // The first fetch goes out when the tab is made; later ones follow the scrolling.
    if (!m_model.hasLoaded() && !m_model.isLoading())
        m_model.reload();
    scheduleVisibleRows();
}

void DataGridView::scheduleVisibleRows()
{
    // A burst of scroll events tells the model once.
    if (m_visibleUpdatePending)
        return;
    m_visibleUpdatePending = true;
    QTimer::singleShot(0, this, [this] {
        m_visibleUpdatePending = false;
        reportVisibleRows();
    });
}

void DataGridView::reportVisibleRows()
{
    const int rows = m_model.rowCount();
    if (rows == 0) {
        m_model.setVisibleRows({});
        return;
    }
    const int first = std::max(m_table->rowAt(0), 0);
    int last = m_table->rowAt(m_table->viewport()->height() - 1);
    if (last < 0)
        last = std::min(rows - 1,
                        first + std::max(m_table->viewport()->height() /
                                             std::max(m_table->verticalHeader()->defaultSectionSize(), 1),
                                         1));
    m_model.setVisibleRows({first, qint64(last) + 1});
}

void DataGridView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    scheduleVisibleRows();
}

void DataGridView::updateMessage()
{
    const QString message = m_model.message();
    if (m_model.error())
        m_message->setText(QStringLiteral("Can’t show this data\n\n") + message);
    else
        m_message->setText(message);
    m_message->setVisible(!message.isEmpty());
    // An error or an empty grid gets the space; a grid with rows keeps it.
    m_message->setSizePolicy(QSizePolicy::Preferred,
                             m_model.rowCount() == 0 ? QSizePolicy::Expanding : QSizePolicy::Maximum);
    m_table->setVisible(m_model.rowCount() > 0 || m_model.columnCount() > 0);
    const qint64 total = m_model.totalRows();
    const qint64 shown = m_model.filteredRows();
    if (!m_model.hasLoaded())
        m_counts->clear();
    else if (m_model.appliedFilter().isEmpty())
        m_counts->setText(
            QStringLiteral("%1 × %2").arg(QLocale().toString(total)).arg(m_model.columnCount()));
    else
        m_counts->setText(
            QStringLiteral("%1 of %2 rows").arg(QLocale().toString(shown), QLocale().toString(total)));
}

void DataGridView::copySelection()
{
    const QModelIndexList selected = m_table->selectionModel()->selectedIndexes();
    if (selected.isEmpty())
        return;
    QList<qint64> rows;
    QList<qsizetype> columns;
    for (const QModelIndex &index : selected) {
        rows.append(index.row());
        columns.append(index.column());
    }
    QPointer<DataGridView> self(this);
    m_model.tsv(rows, columns, [self](Result<QString> text) {
        if (text)
            QGuiApplication::clipboard()->setText(text.value());
        else if (self)
            self->m_message->setText(QStringLiteral("Couldn’t copy the rows: ") + text.error());
    });
}

// ---- The inspector

DataColumnInspector::DataColumnInspector(DataGridModel &model, QWidget *parent)
    : QWidget(parent), m_model(model)
{
    new QVBoxLayout(this);
    connect(&m_model, &DataGridModel::selectedColumnChanged, this, &DataColumnInspector::rebuild);
    connect(&m_model, &DataGridModel::profilesChanged, this, &DataColumnInspector::rebuild);
    connect(&m_model, &DataGridModel::modelReset, this, &DataColumnInspector::rebuild);
    rebuild();
}

void DataColumnInspector::rebuild()
{
    delete m_body;
    m_body = new QWidget(this);
    layout()->addWidget(m_body);
    auto *column = new QVBoxLayout(m_body);
    column->setContentsMargins(8, 8, 8, 8);
    const std::optional<qsizetype> selected = m_model.selectedColumn();
    if (!selected) {
        auto *hint = new QLabel(QStringLiteral("Select a column to see its profile."), m_body);
        hint->setWordWrap(true);
        hint->setForegroundRole(QPalette::PlaceholderText);
        column->addWidget(hint);
        column->addStretch(1);
        return;
    }
    const DataColumnInfo &info = m_model.columns().at(*selected);
    auto *heading = sectionTitle(info.name, m_body);
    heading->setObjectName(QStringLiteral("inspectorHeading"));
    column->addWidget(heading);
    auto *kind = new QLabel(info.kind().displayName(), m_body);
    kind->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(kind);
    const std::optional<ColumnProfile> profile = m_model.profile(*selected);
    if (!profile) {
        auto *waiting = new QLabel(QStringLiteral("No profile yet."), m_body);
        waiting->setForegroundRole(QPalette::PlaceholderText);
        column->addWidget(waiting);
        column->addStretch(1);
        return;
    }
    const QList<ColumnProfile::Section> sections = profile->inspectorSections();
    for (qsizetype i = 0; i < sections.size(); ++i) {
        const ColumnProfile::Section &section = sections[i];
        if (!section.title.isEmpty())
            column->addWidget(sectionTitle(section.title, m_body));
        auto *form = new QFormLayout;
        form->setContentsMargins(0, 2, 0, 6);
        for (const auto &[label, value] : section.rows) {
            auto *figure = new QLabel(value, m_body);
            figure->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
            form->addRow(label, figure);
        }
        column->addLayout(form);
        // The distribution stands after the statistics.
        if (i == 1 || (i == 0 && sections.size() == 1)) {
            const QList<qint64> bins = profile->drawableHistogram();
            if (!bins.isEmpty()) {
                column->addWidget(sectionTitle(QStringLiteral("Distribution"), m_body));
                QList<double> heights;
                const qint64 largest = *std::max_element(bins.begin(), bins.end());
                for (qint64 bin : bins)
                    heights.append(largest > 0 ? double(bin) / double(largest) : 0.0);
                column->addWidget(new BarChart(heights, m_body));
                const auto [low, high] = profile->histogramRange();
                auto *range = new QLabel(
                    QStringLiteral("%1 … %2").arg(DataFormat::number(low, 5), DataFormat::number(high, 5)),
                    m_body);
                range->setForegroundRole(QPalette::PlaceholderText);
                column->addWidget(range);
            }
        }
    }
    if (const QString note = profile->note(); !note.isEmpty()) {
        auto *label = new QLabel(note, m_body);
        label->setWordWrap(true);
        label->setForegroundRole(QPalette::PlaceholderText);
        column->addWidget(label);
    }
    column->addStretch(1);
}

QString DataColumnInspector::text() const
{
    QStringList lines;
    for (const QLabel *label : m_body->findChildren<QLabel *>()) {
        if (!label->text().isEmpty())
            lines.append(label->text());
    }
    return lines.join(u'\n');
}
