// Draws the console model's cells into one plain-text document. Updates are incremental: cells
// whose revision did not move are skipped, and in a changed cell only items whose content changed
// are redrawn, so a flood of output costs the size of the live chunk, not of the transcript.
#pragma once

#include "Console/ConsoleModel.h"

#include <QPlainTextEdit>
#include <QPointer>

class ConsoleTranscriptView : public QPlainTextEdit {
    Q_OBJECT
public:
    explicit ConsoleTranscriptView(QWidget *parent = nullptr);

    void setModel(ConsoleModel *model);
    // Redraws everything, for a change of look.
    void rebuild();
    // Brings the document in line with the model.
    void sync();

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
    QList<RenderedCell> m_rendered;
    int m_syncedRevision = -1;
};
