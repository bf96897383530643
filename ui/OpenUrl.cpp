#include "ui/OpenUrl.h"

namespace quillon::ui {

std::optional<QUrl> urlToOpen(const QString& field)
{
    QString text = field.trimmed();
    if (text.isEmpty())
        return std::nullopt;
    if (!text.contains(QStringLiteral("://")))
        text.prepend(QStringLiteral("https://"));
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QStringLiteral("http") && scheme != QStringLiteral("https")))
        return std::nullopt;
    return url;
}

} // namespace quillon::ui
