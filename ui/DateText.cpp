#include "ui/DateText.h"

#include <QLocale>
#include <QRegularExpression>

namespace quillon::ui {

QDateTime toDateTime(model::Time when)
{
    return QDateTime::fromSecsSinceEpoch(when.time_since_epoch().count()).toLocalTime();
}

model::Time fromDateTime(const QDateTime& when)
{
    return model::Time(std::chrono::seconds(when.toSecsSinceEpoch()));
}

QString mediumDateTime(model::Time when)
{
    const QLocale locale;
    QString dateFormat = locale.dateFormat(QLocale::LongFormat);
    static const QRegularExpression weekday(QStringLiteral("dddd[,.]?\\s*"));
    dateFormat.remove(weekday);
    dateFormat.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    const QDateTime local = toDateTime(when);
    return locale.toString(local.date(), dateFormat.trimmed()) + QLatin1Char(' ') +
           locale.toString(local.time(), QLocale::ShortFormat);
}

} // namespace quillon::ui
