#include "state/CanonicalText.h"

#include "files/CanonicalPath.h"

#include <QFile>

namespace quillon::state {

QString canonicalText(const QString& path)
{
    const QByteArray local = QFile::encodeName(path);
    const auto canonical = files::canonicalPath(std::filesystem::path(local.toStdString()));
    return QFile::decodeName(QByteArray::fromStdString(canonical.native()));
}

} // namespace quillon::state
