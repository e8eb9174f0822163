// One kernel frame's JSON read as a typed event: the only place kernel frames are decoded. Reading
// is lenient as everywhere in the kernel's traffic: a frame of an unknown type, or one without what
// its type needs, decodes to nothing, and any other missing field takes its default.
#pragma once

#include "JSONValue.h"
#include "RSessionTypes.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// The kernel's "input" event: R is reading a line (readline) or lines (readLines, scan) for user code.
struct RInputRequest {
    enum class Kind { Line, Lines };
    Kind kind = Kind::Line;

    bool readsSeveralLines() const { return kind == Kind::Lines; }
    bool operator==(const RInputRequest &) const = default;
};

struct KernelEvent {
    enum class Kind {
        Ready,
        Response,
        Message,
        Warning,
        Error,
        Interrupted,
        Plot,
        State,
        Done,
        View,
        OpenFile,
        Quit,
        Input,
        InputDone,
        Browse,
        Viewer,
        Debug
    };
    Kind kind = Kind::Done;
    RInfo info;                   // Ready
    QString id;                   // Response
    std::optional<QString> fault; // Response: the request's R error
    JSONValue result;             // Response
    QString text;                 // Message, Warning
    std::optional<QString> call;  // Warning
    RErrorInfo error;             // Error
    int page = 0;                 // Plot
    QString file;                 // Plot
    bool isNew = false;           // Plot
    JSONValue geometry;           // Plot: the kernel's plot information, null when absent
    RSessionState state;          // State
    bool failed = false;          // Done: the run said it did not succeed
    QString expr, title;          // View
    QUrl url;                     // OpenFile, Browse, Viewer
    RInputRequest input;          // Input
    QList<RFrame> frames;         // Debug
    QList<REnvObject> variables;  // Debug

    static std::optional<KernelEvent> decode(const JSONValue &frame);
    bool operator==(const KernelEvent &) const = default;
};
