// bench/support/SilentAsker.h: the question seam of a benchmark of the windows: nobody is there to answer.
#pragma once

#include "ui/Asker.h"

#include <cstdio>

namespace quillon::bench {

// Says on standard error what would have been asked, and answers as the default button would: "No", "Cancel",
// no file.
class SilentAsker final : public ui::Asker {
public:
    void warn(QWidget*, const QString& message, const QString&) override
    {
        std::fprintf(stderr, "alert: %s\n", qPrintable(message));
    }
    bool confirm(QWidget*, const QString& message, const QString&) override
    {
        std::fprintf(stderr, "question: %s\n", qPrintable(message));
        return false;
    }
    ui::SaveAnswer askToSave(QWidget*, const QString&, const QString&) override { return ui::SaveAnswer::cancel; }
    std::optional<QString> chooseFile(QWidget*, const QString&, const QString&) override { return std::nullopt; }
    std::optional<QString> chooseSaveFile(QWidget*, const QString&, const QString&, const QString&) override
    {
        return std::nullopt;
    }
};

} // namespace quillon::bench
