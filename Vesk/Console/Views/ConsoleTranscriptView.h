// Draws the console model's cells into one plain-text document. Updates are incremental: cells
// whose revision did not move are skipped, and in a changed cell only items whose content changed
// are redrawn, so a flood of output costs the size of the live chunk, not of the transcript.
// A plot item is an inline object drawn as a thumbnail of its page, looked up in the plot store
// at paint time, so a re-rendered or removed page shows its current state without a redraw.
#pragma once

#include "Console/ConsoleModel.h"

#include <QHash>
#include <QImage>
#include <QPlainTextEdit>
#include <QPointer>

#include <optional>

class PlotStore;
class PlotThumbnails;

class ConsoleTranscriptView : public QPlainTextEdit {
    Q_OBJECT
public:
    explicit ConsoleTranscriptView(QWidget *parent = nullptr);

    void setModel(ConsoleModel *model);
    // Redraws everything, for a change of look.
    void rebuild();
    // Brings the document in line with the model.
    void sync();
    // The pages that plot items show; without a store they show an empty frame.
    void setPlots(PlotStore *plots);
    // The page of the thumbnail under a point of the viewport, if that page can still be opened.
    std::optional<int> plotAt(QPoint viewportPoint) const;
    // Whether new output and size changes keep the view at the end: true until the user scrolls
    // away from the end, and again when they scroll back to it or a new run begins.
    bool following() const { return m_following; }

signals:
    // A click on a thumbnail whose page is still in the store.
    void plotActivated(int page);

protected:
    bool viewportEvent(QEvent *event) override;

private:
    struct Piece {
        QUuid id;
        QString key;
        int length = 0;
        std::function<void(QTextCursor &)> draw;
    };
    struct RenderedPiece {
        QUuid id;
        QString key;
        int length = 0;
    };
    struct RenderedCell {
        QUuid id;
        int revision = -1;
        int length = 0;
        QList<RenderedPiece> pieces;
    };

    QList<Piece> piecesOf(const ConsoleModel::Cell &cell) const;
    int drawPiece(QTextCursor &cursor, int position, const Piece &piece);
    void removeRange(QTextCursor &cursor, int position, int length);
    void syncCell(QTextCursor &cursor, int position, RenderedCell &rendered, const ConsoleModel::Cell &cell);

    QPointer<ConsoleModel> m_model;
    PlotThumbnails *m_thumbnails = nullptr;
    // The thumbnails' generation of each plot item, fixed when first drawn so that a redraw of the
    // whole transcript keeps older items apart from the pages of a restarted R.
    mutable QHash<QUuid, int> m_plotGenerations;
    QList<RenderedCell> m_rendered;
    int m_syncedRevision = -1;
    bool m_following = true;
    // Set while the view moves its own scroll position, which says nothing of the user's wish.
    bool m_moving = false;
};
