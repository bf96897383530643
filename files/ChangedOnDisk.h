// files/ChangedOnDisk.h: the save was refused because the file on disk is no longer the one last read.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace quillon::files {

class ChangedOnDisk final : public std::exception {
public:
    // name: the last path component of the file, as the user named it.
    explicit ChangedOnDisk(std::string name) : name_(std::move(name)), text_(describe(name_)) {}

    const std::string& name() const noexcept { return name_; }
    const char* what() const noexcept override { return text_.c_str(); }

    static std::string describe(const std::string& name)
    {
        return name + " was changed by another app while it was being saved, so nothing was written. Save again "
                      "to choose what happens.";
    }

private:
    std::string name_;
    std::string text_;
};

} // namespace quillon::files
