// Text for people: made safe for a terminal, in UTF-8 whatever it was; and endings of file names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The character that the text begins with, which goes from its front. Nothing, and one byte goes,
/// where the bytes are no UTF-8 (RFC 3629: overlong forms and surrogates are none either).
std::optional<char32_t> Text_Take(std::string_view &text);

/// Appends a character in UTF-8.
void Text_Put(std::string &text, char32_t character);

/// Whether a character could steer a terminal: C0, DEL, C1.
constexpr bool Text_IsControl(char32_t character)
{
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

/// The text for a terminal: control characters have become blanks, bytes that are no UTF-8 the
/// replacement character U+FFFD. File names need this as much as texts out of files.
std::string Text_Harmless(std::string_view utf8);

/// ISO/IEC 8859-1 as UTF-8.
std::string Text_FromLatin1(std::string_view latin1);

/// A text that is UTF-8 as it is, any other as Latin-1.
std::string Text_FromEither(std::string_view text);

/// Whether a file name has this ending ("." and letters of ASCII), in either case.
bool Text_EndsWith(std::string_view name, std::string_view ending);

/// The text in JSON (RFC 8259), quotes included; bytes that are no UTF-8 become U+FFFD.
std::string Text_JSON(std::string_view utf8);
