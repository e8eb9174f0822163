// The small records the R session reports: frames, errors, results of runs, and the objects of
// the global environment. Decoded leniently from kernel JSON: a bad field never loses a record.
#pragma once

#include "JSONValue.h"

#include <QList>
#include <QLocale>
#include <QString>
#include <QStringList>

#include <optional>
#include <type_traits>

// One frame of a call stack.
struct RFrame {
    QString call;
    std::optional<QString> file;
    std::optional<int> line;

    static std::optional<RFrame> fromJSON(const JSONValue &value);
    QString identity() const;
    bool operator==(const RFrame &) const = default;
};

struct RErrorInfo {
    QString message;
    std::optional<QString> call;
    QList<RFrame> traceback;
    bool isParseError = false;
    bool operator==(const RErrorInfo &) const = default;
};

struct RInfo {
    QString version;
    qint32 pid = 0;
    QString home; // never filled by the session
    bool operator==(const RInfo &) const = default;
};

// Who ran code.
struct ExecOrigin {
    enum class Kind { Editor, Agent, Console, System };
    Kind kind = Kind::Console;
    QString name; // the editor's title or the agent's name

    static ExecOrigin editor(QString title) { return {Kind::Editor, std::move(title)}; }
    static ExecOrigin agent(QString name) { return {Kind::Agent, std::move(name)}; }
    static ExecOrigin console() { return {Kind::Console, {}}; }
    static ExecOrigin system() { return {Kind::System, {}}; }
    bool operator==(const ExecOrigin &) const = default;
};

// What a finished execution gives back.
struct ExecResult {
    bool ok = false;
    QString output;
    std::optional<RErrorInfo> error;
    QStringList warnings;
    QList<int> plots;
    bool interrupted = false;

    // The result of a run that never ran.
    static ExecResult cancelled();
    bool operator==(const ExecResult &) const = default;
};

// One object of an R environment.
struct REnvObject {
    enum class Kind { Data, Function, Environment, List, Value, Other };
    struct Column {
        QString name;
        QString type;
        bool operator==(const Column &) const = default;
    };

    QString name;
    Kind kind = Kind::Other;
    QStringList classes; // R's class attribute
    std::optional<QString> type;
    std::optional<double> size;
    std::optional<double> length;
    std::optional<QList<double>> dim;
    std::optional<QString> summary;
    std::optional<QList<Column>> columns;
    std::optional<QStringList> from;

    static std::optional<REnvObject> fromJSON(const JSONValue &value);
    static Kind kindFromString(const QString &text);
    // "1,000 × 5" for exactly two dimensions.
    std::optional<QString> dimensionText(const QLocale &locale = QLocale()) const;
    // A byte count in the platform's file-size style, for a size above 0.
    std::optional<QString> sizeText(const QLocale &locale = QLocale()) const;
    bool operator==(const REnvObject &) const = default;
};

// The environment snapshot of a "state" event. The kernel's first state lists every object; a
// later one may be partial: `env` then holds only the objects that are new or changed, and
// `removed` the names that are gone. `apply` folds either into the snapshot before it.
struct RSessionState {
    QString wd;
    QList<REnvObject> env; // sorted by name in code point order, as the kernel sorts
    QStringList attached;
    QStringList loaded;
    // R's prompts as user code sees them ("> " and "+ ", or what the user set).
    QString prompt = QStringLiteral("> ");
    QString continuation = QStringLiteral("+ ");
    bool partial = false;
    QStringList removed;

    // Fails only when the value is no object; entries of `env` that do not decode are skipped.
    static std::optional<RSessionState> fromJSON(const JSONValue &value);
    // This snapshot followed by `next`: a full state replaces it, a partial one is merged, keeping
    // the order. An environment nothing changed in stays the very same (shared) list.
    void apply(const RSessionState &next);
    // Code point order, which is R's radix order for UTF-8 names (UTF-16 order differs above U+FFFF).
    static bool nameBefore(const QString &a, const QString &b);
    bool operator==(const RSessionState &) const = default;
};

// Tolerant readers of kernel JSON.
namespace LenientJSON {

std::optional<QString> string(const JSONValue *value);
// A number, or a string that reads as one.
std::optional<double> number(const JSONValue *value);
// A list of strings; a lone string counts as a list of one.
std::optional<QStringList> strings(const JSONValue *value);
// A list of numbers; a lone number counts as a list of one.
std::optional<QList<double>> numbers(const JSONValue *value);

// The items of a list that decode; a lone item counts as a list of one.
template <typename Decode> auto items(const JSONValue *value, Decode decode)
{
    QList<typename std::invoke_result_t<Decode, const JSONValue &>::value_type> out;
    if (!value)
        return out;
    if (const JSONValue::Array *array = value->arrayValue()) {
        for (const JSONValue &item : *array)
            if (auto decoded = decode(item))
                out.append(std::move(*decoded));
    } else if (auto decoded = decode(*value)) {
        out.append(std::move(*decoded));
    }
    return out;
}

} // namespace LenientJSON
