// One running `claude` in bidirectional stream-json mode: an agent thread's conversation. It owns the
// child, its private MCP configuration file and the line framing of its output, and tells what the
// child says as AgentStreamEvents, in order, on the object's thread. No conversation logic here.
#pragma once

#include "AgentStreamEvent.h"
#include "ClaudeCodeConfiguration.h"
#include "JSONValue.h"
#include "Result.h"

#include <QByteArray>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class ClaudeCodeProcess : public QObject {
    Q_OBJECT
public:
    explicit ClaudeCodeProcess(ClaudeCodeConfiguration configuration, QObject *parent = nullptr);
    // Ends the child; nothing is delivered after this.
    ~ClaudeCodeProcess() override;

    const ClaudeCodeConfiguration &configuration() const { return m_configuration; }
    bool isRunning() const;
    // -1 before the start.
    qint64 processIdentifier() const;
    // The private configuration file while it exists.
    std::optional<QString> mcpConfigFile() const;

    // Writes the configuration file and launches the child. Once only; on failure nothing is
    // emitted and no file is left behind.
    Result<void> start();

    // A user message; `content` is an array of content blocks.
    void send(const QString &text);
    void send(const JSONValue &content);
    // Asks claude to stop the running turn; the turn still ends with its result event.
    void interrupt();
    // Closes stdin and ends the child. Safe at any time and more than once; `finished` still comes.
    void terminate();

    // The `claude` to run: `preferred` when it is executable, else the usual places in the home folder.
    static std::optional<QString> locate(const std::optional<QString> &preferred);

    // Creates `name` in the temporary directory, readable by the user alone; an existing file is an
    // error. The file's path.
    static Result<QString> writePrivateFile(const QString &name, const QByteArray &data);

    // The status an `Exited` event carries for a child ended by a signal, as a shell reports it.
    static constexpr qint32 signalStatusBase = 128;

    struct Shared;

signals:
    // In the order claude wrote them; `Exited` comes last, then `finished`.
    void event(const AgentStreamEvent &event);
    void finished();

private:
    void write(const JSONValue &value);

    const ClaudeCodeConfiguration m_configuration;
    std::shared_ptr<Shared> m_shared;
};

Q_DECLARE_METATYPE(AgentStreamEvent)
