// The transcript of a session: cells, one per execution or note, each with ordered items. Stream
// text is batched and kept bounded, so a flood of output never costs more than a fixed amount.
#pragma once

#include "OutputRun.h"
#include "RSessionTypes.h"
#include "WorkspaceChange.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUuid>

#include <optional>

class ConsoleModel : public QObject {
    Q_OBJECT
public:
    enum class Stream { Stdout, Stderr };

    struct Item {
        enum class Kind { Output, Stderr, Echo, Message, Warning, Error, Plot, Note, Omitted };
        QUuid id;
        Kind kind = Kind::Note;
        QString text;                // Output, Stderr (with ANSI sequences), Echo, Message, Warning, Note
        std::optional<QString> call; // Warning
        RErrorInfo error;            // Error
        int page = 0;                // Plot
        qint64 lines = 0;            // Omitted
        bool isStderr = false;       // Omitted

        static Item output(QString text) { return make(Kind::Output, std::move(text)); }
        static Item stderrText(QString text) { return make(Kind::Stderr, std::move(text)); }
        static Item echo(QString text) { return make(Kind::Echo, std::move(text)); }
        static Item message(QString text) { return make(Kind::Message, std::move(text)); }
        static Item warning(QString text, std::optional<QString> call = std::nullopt);
        static Item errorItem(RErrorInfo error);
        static Item plot(int page);
        static Item note(QString text) { return make(Kind::Note, std::move(text)); }
        static Item omitted(qint64 lines, bool isStderr);
        bool operator==(const Item &) const = default;

    private:
        static Item make(Kind kind, QString text);
    };

    struct Cell {
        enum class State { Running, Done, Failed, Interrupted };
        QUuid id;
        std::optional<QString> execID;
        ExecOrigin origin;
        std::optional<QString> code;
        // R's prompts when the cell began, for showing its code as R would.
        QString prompt = QStringLiteral("> ");
        QString continuation = QStringLiteral("+ ");
        QList<Item> items;
        State state = State::Running;
        QDateTime started;
        std::optional<QDateTime> finished;
        QList<WorkspaceChange> changes;
        int revision = 0;

        // Seconds from start to finish; none while the cell runs.
        std::optional<double> duration() const;
    };

    static constexpr int maxCells = 500;
    // A message line that grows past this starts a new item rather than growing without end.
    static constexpr qsizetype maxMessageBytes = 6000;

    explicit ConsoleModel(QObject *parent = nullptr);

    void begin(const QString &execID, const QString &code, const ExecOrigin &origin);
    void finish(const QString &execID, const ExecResult &result);
    void settle();
    void append(const Item &item);
    void note(const QString &text);
    void attach(const QList<WorkspaceChange> &changes);
    // The prompts R's code sees (options prompt and continue); cells that begin later show them.
    void setPrompts(const QString &prompt, const QString &continuation);
    void clear();
    void flush();

    const QList<Cell> &cells() const { return m_cells; }
    const Cell *cell(const QUuid &id) const;
    const Cell *cell(const QString &execID) const;
    int revision() const { return m_revision; }

    std::optional<RErrorInfo> lastError() const;
    std::optional<QString> lastFailedCode() const;
    QString transcript(int lastCells, qsizetype maxCharacters);
    QString transcript(const QUuid &cellID);

    // "… 1,234 lines not shown …"
    static QString omittedText(qint64 lines);

signals:
    // The transcript changed; `revision` says how often.
    void changed();

private:
    struct ActiveRun {
        QUuid cellID;
        Stream stream = Stream::Stdout;
        qsizetype firstItem = 0;
        OutputRun output;
    };

    void enqueue(Stream stream, const QString &text);
    void write(const QString &text, Stream stream);
    Cell &runningCell();
    void touch(Cell &cell);
    void bump();
    static QStringList plainParts(const QList<Item> &items, bool annotated);
    static QString cellTranscript(const Cell &cell);

    QList<Cell> m_cells;
    int m_revision = 0;
    QList<std::pair<Stream, QString>> m_pending;
    QTimer m_flushTimer;
    qsizetype m_lastBatchBytes = 0;
    std::optional<ActiveRun> m_run;
    QString m_prompt = QStringLiteral("> ");
    QString m_continuation = QStringLiteral("+ ");
};
