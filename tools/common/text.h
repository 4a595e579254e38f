// Text for people: converted to UTF-8, made safe for a terminal; and endings of file names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Takes the first character off the text. Nothing, and one byte less, if the bytes are not valid
/// UTF-8 (RFC 3629: overlong forms and surrogates are not valid).
std::optional<char32_t> Text_Take(std::string_view &text);

/// Appends a character in UTF-8.
void Text_Put(std::string &text, char32_t character);

/// Whether a character could control a terminal: C0, DEL, C1.
constexpr bool Text_IsControl(char32_t character)
{
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

/// The text made safe for a terminal: control characters become blanks, invalid UTF-8 becomes
/// U+FFFD. File names need this as much as texts from files.
std::string Text_Harmless(std::string_view utf8);

/// ISO/IEC 8859-1 as UTF-8.
std::string Text_FromLatin1(std::string_view latin1);

/// Valid UTF-8 unchanged, any other text read as Latin-1.
std::string Text_FromEither(std::string_view text);

/// Whether a file name has this ending ("." and ASCII letters), in either case.
bool Text_EndsWith(std::string_view name, std::string_view ending);

/// The text as a JSON string (RFC 8259), quotes included; invalid UTF-8 becomes U+FFFD.
std::string Text_JSON(std::string_view utf8);
