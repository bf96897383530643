#include "model/DatabaseSettings.h"

#include "kdbx/Identifiers.h"

#include <algorithm>
#include <vector>

namespace quillon::model {

std::int64_t SettingRange::valueOf(std::optional<std::int64_t> typed) const noexcept
{
    return typed ? std::clamp(*typed, low, high) : fallback;
}

void DatabaseSettings::applyTo(kdbx::OuterHeader& header, Document& document) const
{
    if (cipher) {
        const auto& id = *cipher == Cipher::chaCha20 ? kdbx::cipherChaCha20 : kdbx::cipherAes256;
        header.cipher.assign(id.begin(), id.end());
    }
    auto& parameters = header.kdf.entries;
    if (kdf) {
        const auto& id = *kdf == Kdf::argon2d ? kdbx::kdfArgon2d : kdbx::kdfArgon2id;
        parameters["$UUID"] = std::vector<std::uint8_t>(id.begin(), id.end());
    }
    if (memoryMiB)
        parameters["M"] = static_cast<std::uint64_t>(memoryMiBRange.valueOf(memoryMiB)) << 20;
    if (iterations)
        parameters["I"] = static_cast<std::uint64_t>(iterationsRange.valueOf(iterations));
    if (threads)
        parameters["P"] = static_cast<std::uint32_t>(threadsRange.valueOf(threads));
    if (unlimitedHistory)
        document.setHistoryMaxItems(-1);
    else if (historyMaxItems)
        document.setHistoryMaxItems(std::clamp(*historyMaxItems, historyLow, historyHigh));
}

} // namespace quillon::model
