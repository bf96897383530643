// ui/Paths.h: file paths between Qt's strings and the file layer's paths.
#pragma once

#include <QFile>
#include <QString>

#include <filesystem>

namespace quillon::ui {

// Through the file system's own encoding, so that a name Qt shows is the name the file layer opens.
inline std::filesystem::path toPath(const QString& path)
{
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

inline QString fromPath(const std::filesystem::path& path)
{
    return QFile::decodeName(path.native().c_str());
}

} // namespace quillon::ui
