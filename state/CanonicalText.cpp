#include "state/CanonicalText.h"

#include <QFile>

#include <filesystem>
#include <system_error>

namespace quillon::state {

QString canonicalText(const QString& path)
{
    const QByteArray local = QFile::encodeName(path);
    const std::filesystem::path location(local.toStdString());
    std::error_code error;
    // Links resolve in the part that exists; the rest cannot hold one and is only tidied.
    auto canonical = std::filesystem::weakly_canonical(std::filesystem::absolute(location, error), error);
    if (error)
        canonical = std::filesystem::absolute(location, error);
    canonical = canonical.lexically_normal();
    if (!canonical.has_filename() && canonical.has_relative_path())
        canonical = canonical.parent_path();
    return QFile::decodeName(QByteArray::fromStdString(canonical.native()));
}

} // namespace quillon::state
