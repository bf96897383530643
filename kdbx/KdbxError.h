// kdbx/KdbxError.h: the codec's only error; its text is what the user reads.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace quillon::kdbx {

// Texts carry fixed words and numbers only, never bytes from a file or a credential.
class KdbxError final : public std::exception {
public:
    enum class Case : std::uint8_t {
        unsupportedVersion,
        malformedHeader,
        unsupportedCipher,
        unsupportedKdf,
        blockCorrupt,
        malformedInner,
        malformedXML,
        argon2,
        notKdbx,
        headerCorrupt,
        wrongCredentials,
        writtenFileDiffers,
    };

    static KdbxError unsupportedVersion(std::uint16_t major, std::uint16_t minor);
    static KdbxError malformedHeader(std::string_view text);
    static KdbxError unsupportedCipher(std::string_view text);
    static KdbxError unsupportedKdf(std::string_view text);
    static KdbxError blockCorrupt(std::uint64_t index);
    static KdbxError malformedInner(std::string_view text);
    static KdbxError malformedXML(std::string_view text);
    static KdbxError argon2(std::int32_t code);
    static KdbxError notKdbx();
    static KdbxError headerCorrupt();
    static KdbxError wrongCredentials();
    // A file just written does not decrypt to exactly what was encoded into it.
    static KdbxError writtenFileDiffers();

    Case which() const noexcept { return which_; }
    // The user-facing description.
    const std::string& describe() const noexcept { return text_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    KdbxError(Case c, std::string text) : which_(c), text_(std::move(text)) {}
    Case which_;
    std::string text_;
};

// The text every short read gives, wherever in the file it happens.
inline constexpr std::string_view unexpectedEnd = "unexpected end of data";

} // namespace quillon::kdbx
