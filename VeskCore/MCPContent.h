// One item of a tool's result: text, or an image's bytes with their MIME type.
#pragma once

#include "JSONValue.h"

#include <QByteArray>
#include <QString>

#include <variant>

class MCPContent {
public:
    struct Image {
        QByteArray data;
        QString mimeType;
        bool operator==(const Image &) const = default;
    };

    static MCPContent text(QString text) { return MCPContent(std::move(text)); }
    static MCPContent image(QByteArray data, QString mimeType)
    {
        return MCPContent(Image{std::move(data), std::move(mimeType)});
    }

    const QString *textValue() const { return std::get_if<QString>(&m_value); }
    const Image *imageValue() const { return std::get_if<Image>(&m_value); }

    // {"type":"text","text":…} or {"type":"image","data":<base 64>,"mimeType":…}
    JSONValue json() const;

    bool operator==(const MCPContent &) const = default;

private:
    explicit MCPContent(std::variant<QString, Image> value) : m_value(std::move(value)) {}
    std::variant<QString, Image> m_value;
};
