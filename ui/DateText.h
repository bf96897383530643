// ui/DateText.h: document times as the windows show them: the locale's medium date and short time.
#pragma once

#include "model/Encodings.h"

#include <QDateTime>
#include <QString>

namespace quillon::ui {

QDateTime toDateTime(model::Time when);
model::Time fromDateTime(const QDateTime& when);
// "Nov 25, 2026 10:59 AM" in English; Qt has no medium date, so the long one loses its weekday and
// abbreviates its month.
QString mediumDateTime(model::Time when);

} // namespace quillon::ui
