// The one decoder and encoder of user files: decides whether bytes are text, which of the six
// encodings they are in and which line ending they use. Conversions are strict: a malformed
// sequence or a character an encoding can't hold is a failure, never a replacement character.
#pragma once

#include "DecodedText.h"
#include "LineEnding.h"
#include "TextFileEncoding.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

namespace TextFileCodec {

// The prefix that the binary test reads.
inline constexpr qsizetype sniffLength = 8192;

// Absent means that the bytes are not text. For a file whose breaks are all of one kind, encoding
// the result with its own encoding and ending gives back the same bytes.
std::optional<DecodedText> decode(QByteArrayView data);
// The text with its breaks made `lineEnding`, in `encoding`, with the encoding's byte order mark.
// Absent when a character can't be held by Windows-1252 or Latin 1. The Unicode encodings always
// succeed: a lone surrogate, which no file can hold, is written as U+FFFD.
std::optional<QByteArray> encode(const QString &text, TextFileEncoding encoding, LineEnding lineEnding);

// The encoding named by a byte order mark at the start of `data`, if any.
std::optional<TextFileEncoding> bomEncoding(QByteArrayView data);
bool looksBinary(QByteArrayView data);
// Whether the first sniffLength bytes hold a zero byte.
bool hasNULBytes(QByteArrayView data);
// Whether the start of the data reads as UTF-8, allowing a character cut at the sniff length.
bool isUTF8Prefix(QByteArrayView data);

// What decode would report as the encoding, without building the text.
std::optional<TextFileEncoding> detectEncoding(QByteArrayView data);

} // namespace TextFileCodec
