#include "kdbx/KdbxError.h"

namespace quillon::kdbx {
namespace {

std::string withText(std::string_view prefix, std::string_view text, std::string_view suffix)
{
    std::string out;
    out.reserve(prefix.size() + text.size() + suffix.size());
    out.append(prefix).append(text).append(suffix);
    return out;
}

} // namespace

KdbxError KdbxError::unsupportedVersion(std::uint16_t major, std::uint16_t minor)
{
    return {Case::unsupportedVersion,
            "This is a KDBX " + std::to_string(major) + "." + std::to_string(minor) +
                " database, and Quillon opens KDBX 4 only. In KeePassXC or KeePass 2, set the key derivation function "
                "to Argon2id (a KDBX 4 option), save, and open it again."};
}

KdbxError KdbxError::malformedHeader(std::string_view text)
{
    return {Case::malformedHeader, withText("Malformed header: ", text, ".")};
}

KdbxError KdbxError::unsupportedCipher(std::string_view text)
{
    return {Case::unsupportedCipher, withText("Unsupported cipher ", text, ".")};
}

KdbxError KdbxError::unsupportedKdf(std::string_view text)
{
    return {Case::unsupportedKdf,
            withText("Unsupported key derivation function (", text,
                     "). Quillon supports Argon2id and Argon2d. Switch the database to Argon2id in the app that "
                     "created it, save, and open it again.")};
}

KdbxError KdbxError::blockCorrupt(std::uint64_t index)
{
    return {Case::blockCorrupt, "Data block " + std::to_string(index) + " failed its integrity check."};
}

KdbxError KdbxError::malformedInner(std::string_view text)
{
    return {Case::malformedInner, withText("Malformed inner header: ", text, ".")};
}

KdbxError KdbxError::malformedXML(std::string_view text)
{
    return {Case::malformedXML, withText("Malformed XML: ", text, ".")};
}

KdbxError KdbxError::argon2(std::int32_t code)
{
    return {Case::argon2, "Argon2 failed with code " + std::to_string(code) + "."};
}

KdbxError KdbxError::notKdbx() { return {Case::notKdbx, "Not a KDBX file."}; }

KdbxError KdbxError::headerCorrupt() { return {Case::headerCorrupt, "The header failed its integrity check."}; }

KdbxError KdbxError::wrongCredentials() { return {Case::wrongCredentials, "Wrong password or key file."}; }

KdbxError KdbxError::writtenFileDiffers()
{
    return {Case::writtenFileDiffers, "The file written does not read back as the database that was saved."};
}

} // namespace quillon::kdbx
