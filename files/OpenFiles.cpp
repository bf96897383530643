#include "files/OpenFiles.h"

#include "files/CanonicalPath.h"
#include "files/Posix.h"

#include <algorithm>

namespace quillon::files {

namespace {

bool sameOwner(const std::weak_ptr<void>& a, const Owner& b)
{
    return !a.owner_before(b) && !b.owner_before(a);
}

} // namespace

OpenFiles::Identity OpenFiles::identity(const std::filesystem::path& location)
{
    Identity result{canonicalPath(location), std::nullopt};
    posix::FileIdentity file;
    if (posix::identify(result.path, file) == 0)
        result.identity = FileId{file.device, file.inode, file.bornNanoseconds};
    return result;
}

Owner OpenFiles::owner(const std::filesystem::path& location, const Owner& except)
{
    prune();
    const auto sought = identity(location);
    for (const auto& claim : claims_) {
        auto holder = claim.owner.lock();
        if (!holder || (except && holder == except))
            continue;
        const bool sameFile = claim.identity && sought.identity && *claim.identity == *sought.identity;
        if (sameFile || claim.path.native() == sought.path.native())
            return holder;
    }
    return nullptr;
}

void OpenFiles::claim(const std::filesystem::path& location, const Owner& owner)
{
    prune();
    release(owner);
    auto [path, fileId] = identity(location);
    claims_.push_back(Claim{owner, std::move(path), fileId});
}

void OpenFiles::release(const Owner& owner)
{
    std::erase_if(claims_, [&](const Claim& claim) { return sameOwner(claim.owner, owner); });
}

void OpenFiles::refresh(const Owner& owner)
{
    for (auto& claim : claims_)
        if (sameOwner(claim.owner, owner))
            claim.identity = identity(claim.path).identity;
}

void OpenFiles::prune()
{
    std::erase_if(claims_, [](const Claim& claim) { return claim.owner.expired(); });
}

} // namespace quillon::files
