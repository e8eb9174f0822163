#include "KernelEvent.h"

namespace {

// A "browse" or "viewer" value: a path when it starts with "/" or does not parse as a URL.
QUrl urlOrFile(const QString &value)
{
    if (value.startsWith(u'/'))
        return QUrl::fromLocalFile(value);
    const QUrl url(value, QUrl::StrictMode);
    if (url.isValid() && !url.scheme().isEmpty())
        return url;
    return QUrl::fromLocalFile(value);
}

std::optional<QString> member(const JSONValue &object, QStringView key)
{
    return LenientJSON::string(object.find(key));
}

} // namespace

std::optional<KernelEvent> KernelEvent::decode(const JSONValue &frame)
{
    const std::optional<QString> type = member(frame, u"type");
    if (!type)
        return std::nullopt;
    KernelEvent out;
    if (*type == u"ready") {
        out.kind = Kind::Ready;
        out.info.version = member(frame, u"version").value_or(QStringLiteral("R"));
        out.info.pid = qint32(frame[u"pid"].intValue().value_or(0));
    } else if (*type == u"response") {
        const std::optional<QString> id = member(frame, u"id");
        if (!id)
            return std::nullopt;
        out.kind = Kind::Response;
        out.id = *id;
        const JSONValue *error = frame.find(u"error");
        if (error && !error->isNull())
            out.fault = error->stringValue().value_or(QStringLiteral("error"));
        else
            out.result = frame[u"result"];
    } else if (*type == u"message") {
        const std::optional<QString> text = member(frame, u"text");
        if (!text)
            return std::nullopt;
        out.kind = Kind::Message;
        out.text = *text;
    } else if (*type == u"warning") {
        out.kind = Kind::Warning;
        out.text = member(frame, u"text").value_or(QString());
        out.call = member(frame, u"call");
    } else if (*type == u"error") {
        out.kind = Kind::Error;
        out.error.message = member(frame, u"text").value_or(QStringLiteral("error"));
        out.error.call = member(frame, u"call");
        out.error.isParseError = frame[u"parse"].boolValue().value_or(false);
        out.error.traceback = LenientJSON::items(frame.find(u"traceback"), RFrame::fromJSON);
    } else if (*type == u"interrupted") {
        out.kind = Kind::Interrupted;
    } else if (*type == u"plot") {
        const std::optional<qint64> page = frame[u"page"].intValue();
        const std::optional<QString> file = member(frame, u"file");
        if (!page || !file)
            return std::nullopt;
        out.kind = Kind::Plot;
        out.page = int(*page);
        out.file = *file;
        out.isNew = frame[u"new"].boolValue().value_or(false);
        out.geometry = frame[u"info"];
    } else if (*type == u"state") {
        const JSONValue *state = frame.find(u"state");
        std::optional<RSessionState> decoded = state ? RSessionState::fromJSON(*state) : std::nullopt;
        if (!decoded)
            return std::nullopt;
        out.kind = Kind::State;
        out.state = std::move(*decoded);
    } else if (*type == u"done") {
        out.kind = Kind::Done;
        out.failed = frame[u"ok"].boolValue() == false;
    } else if (*type == u"view") {
        out.kind = Kind::View;
        out.expr = member(frame, u"expr").value_or(QString());
        out.title = member(frame, u"title").value_or(QString());
    } else if (*type == u"open_file") {
        const QString path = member(frame, u"path").value_or(QString());
        if (path.isEmpty())
            return std::nullopt;
        out.kind = Kind::OpenFile;
        out.url = QUrl::fromLocalFile(path);
    } else if (*type == u"quit") {
        out.kind = Kind::Quit;
    } else if (*type == u"input") {
        out.kind = Kind::Input;
        out.input.kind = frame[u"kind"].stringValue() == QStringLiteral("lines") ? RInputRequest::Kind::Lines
                                                                                 : RInputRequest::Kind::Line;
    } else if (*type == u"input_done") {
        out.kind = Kind::InputDone;
    } else if (*type == u"browse" || *type == u"viewer") {
        const std::optional<QString> url = member(frame, u"url");
        if (!url)
            return std::nullopt;
        out.kind = *type == u"browse" ? Kind::Browse : Kind::Viewer;
        out.url = urlOrFile(*url);
    } else if (*type == u"debug") {
        out.kind = Kind::Debug;
        out.frames = LenientJSON::items(frame.find(u"calls"), RFrame::fromJSON);
        out.variables = LenientJSON::items(frame.find(u"vars"), REnvObject::fromJSON);
    } else {
        return std::nullopt; // a newer kernel's event
    }
    return out;
}
