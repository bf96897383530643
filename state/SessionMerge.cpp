// The comparing half of DatabaseSession: the file as last read or written, kept encrypted, and merges of other
// versions into the document as single commands.
#include "state/DatabaseSession.h"

#include "kdbx/KdbxError.h"

namespace quillon::state {

void DatabaseSession::keepLastFile(std::vector<std::uint8_t> bytes)
{
    if (!credentials_ || isDecoy_ || !services_.keepsLastFile || bytes.empty()) {
        lastBytes_.reset();
        lastCredentials_.reset();
        return;
    }
    lastBytes_ = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    lastCredentials_ = credentials_->copy();
}

void DatabaseSession::decodeLater(std::function<Decoded()> decode, DecodedThen then)
{
    const auto generation = attached_;
    std::weak_ptr<QObject> receiver = receiver_;
    services_.runInBackground([this, receiver, generation, decode = std::move(decode), then = std::move(then)] {
        auto result = std::make_shared<Decoded>();
        try {
            *result = decode();
        } catch (const kdbx::KdbxError &error) {
            result->file.reset();
            result->wrongCredentials = error.which() == kdbx::KdbxError::Case::wrongCredentials;
            result->error = QString::fromUtf8(error.what());
        } catch (const std::exception &error) {
            result->file.reset();
            result->error = QString::fromUtf8(error.what());
        }
        postBack(receiver, [this, generation, result, then] {
            // Locked or replaced meanwhile: the result belongs to a document no longer shown.
            if (generation != attached_ || !document_ || isLocked())
                return;
            then(std::move(*result));
        });
    });
}

bool DatabaseSession::decodeLastFile(DecodedThen then)
{
    if (!hasLastFile())
        return false;
    decodeLater(
        [bytes = lastBytes_, credentials = std::make_shared<kdbx::Credentials>(lastCredentials_->copy())] {
            Decoded decoded;
            decoded.file = kdbx::KdbxFile::open(kdbx::ByteView(*bytes), *credentials);
            return decoded;
        },
        std::move(then));
    return true;
}

bool DatabaseSession::decodeDisk(DecodedThen then)
{
    if (!location_ || !credentials_ || isDecoy_)
        return false;
    decodeLater(
        [location = *location_, credentials = std::make_shared<kdbx::Credentials>(credentials_->copy())] {
            Decoded decoded;
            auto read = files::readDiskBytes(location);
            decoded.stamp = read.stamp;
            decoded.bytes = std::move(read.bytes);
            decoded.file = kdbx::KdbxFile::open(kdbx::ByteView(decoded.bytes), *credentials);
            return decoded;
        },
        std::move(then));
    return true;
}

void DatabaseSession::decodeFile(const std::filesystem::path &path, kdbx::Credentials credentials, DecodedThen then)
{
    decodeLater(
        [path, credentials = std::make_shared<kdbx::Credentials>(std::move(credentials))] {
            Decoded decoded;
            decoded.file = kdbx::KdbxFile::open(files::readDiskBytes(path).bytes, *credentials);
            return decoded;
        },
        std::move(then));
}

namespace {

// Attachments the merge added at the end of the pool go and come back with the command.
void recordPoolGrowth(Command &command, std::function<std::vector<kdbx::InnerBinary> &()> pool, std::size_t before)
{
    const auto count = pool().size() - before;
    if (count == 0)
        return;
    auto kept = std::make_shared<std::vector<kdbx::InnerBinary>>();
    command.addStep(
        [pool, kept, count] {
            auto &p = pool();
            const auto from = p.end() - static_cast<std::ptrdiff_t>(count);
            kept->assign(std::make_move_iterator(from), std::make_move_iterator(p.end()));
            p.erase(from, p.end());
        },
        [pool, kept] {
            auto &p = pool();
            for (auto &binary : *kept)
                p.push_back(std::move(binary));
            kept->clear();
        });
}

} // namespace

model::MergeSummary DatabaseSession::mergeFrom(const model::DocumentSide &theirs, const model::DocumentSide *ancestor)
{
    model::MergeSummary summary;
    performChange(QStringLiteral("Merge"), [&](Command &command) {
        const auto before = kdbx().inner.binaries.size();
        summary = model::merge(*document_, &kdbx().inner.binaries, theirs, ancestor);
        recordPoolGrowth(command, [this]() -> std::vector<kdbx::InnerBinary> & { return kdbx().inner.binaries; },
                         before);
    });
    return summary;
}

model::MergeSummary DatabaseSession::mergeFromDisk(Decoded &disk, const model::DocumentSide *ancestor)
{
    if (!disk.file)
        throw std::logic_error("nothing decoded to merge");
    model::Document theirDocument(disk.file->document);
    const model::DocumentSide theirs{theirDocument, &disk.file->inner.binaries};
    model::MergeSummary summary;
    performChange(QStringLiteral("Merge"), [&](Command &command) {
        const auto before = kdbx().inner.binaries.size();
        summary = model::merge(*document_, &kdbx().inner.binaries, theirs, ancestor);
        recordPoolGrowth(command, [this]() -> std::vector<kdbx::InnerBinary> & { return kdbx().inner.binaries; },
                         before);
        if (!location_ || !disk.stamp || !credentials_)
            return;
        struct Version {
            std::optional<files::DiskStamp> stamp;
            std::shared_ptr<const std::vector<std::uint8_t>> bytes;
            std::shared_ptr<const kdbx::Credentials> credentials;
        };
        auto was = std::make_shared<Version>(Version{
            file_->stamp(), lastBytes_,
            lastCredentials_ ? std::make_shared<const kdbx::Credentials>(lastCredentials_->copy()) : nullptr});
        auto merged = std::make_shared<Version>(Version{
            disk.stamp, std::make_shared<const std::vector<std::uint8_t>>(std::move(disk.bytes)),
            std::make_shared<const kdbx::Credentials>(credentials_->copy())});
        // Only while the expectation is still the one this command set: a save since then has its own.
        const auto apply = [this](const Version &from, const Version &to) {
            if (!file_ || file_->stamp() != from.stamp || !to.stamp || !location_)
                return;
            file_->adopt(*location_, *to.stamp);
            lastBytes_ = to.bytes;
            lastCredentials_.reset();
            if (to.credentials)
                lastCredentials_ = to.credentials->copy();
        };
        apply(*was, *merged);
        command.addStep([apply, was, merged] { apply(*merged, *was); }, [apply, was, merged] { apply(*was, *merged); });
    });
    return summary;
}

} // namespace quillon::state
