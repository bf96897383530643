// ui/Application.h: the windowed application, from the command line's files to the end of the event loop.
#pragma once

#include <QStringList>

#include <optional>

namespace quillon::ui {

// The files of a windowed start, made absolute against the current folder (the running instance that may take
// them has another one); none when an argument is an option this mode does not know.
std::optional<QStringList> filesFromArguments(const QStringList& arguments);

// Runs the application until it quits; argv may lose the options Qt takes for itself.
int runApplication(int& argc, char** argv);

} // namespace quillon::ui
