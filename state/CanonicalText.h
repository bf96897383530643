// state/CanonicalText.h: the file layer's canonical path, for paths held as Qt text.
#pragma once

#include <QString>

namespace quillon::state {

// Symbolic links resolved, then "." and ".." removed; the same text whatever route reached the file.
QString canonicalText(const QString& path);

} // namespace quillon::state
