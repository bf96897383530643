#include "files/SaveError.h"

#include <utility>

namespace quillon::files {

namespace {

// "Could not …" with the name, before system_error appends ": " and the system's message.
std::string sentence(SaveError::Step step, const std::string& name)
{
    using Step = SaveError::Step;
    switch (step) {
    case Step::save: return "Could not save " + name;
    case Step::find: return "Could not find " + name;
    case Step::findFolder: return "Could not find the folder of " + name;
    case Step::readOnlyFile: return "Could not save the read-only file " + name;
    case Step::readOnlyFolder: return "Could not save in the read-only folder of " + name;
    case Step::checkPermissions: return "Could not check the permissions of " + name;
    case Step::checkFolderPermissions: return "Could not check the permissions of the folder of " + name;
    case Step::read: return "Could not read " + name;
    case Step::createTemporary: return "Could not create the temporary file " + name;
    case Step::writeTemporary: return "Could not write the temporary file " + name;
    case Step::readBackTemporary: return "Could not read back the temporary file " + name;
    case Step::setPermissions: return "Could not set the permissions of the temporary file " + name;
    case Step::putBack: return "Could not put back the file changed by another app as " + name;
    }
    return {};
}

} // namespace

SaveError::SaveError(Step step, std::string name, int error)
    : std::system_error(error, std::generic_category(), sentence(step, name)), step_(step), name_(std::move(name))
{
}

std::string SaveError::cause() const
{
    const std::string why = code().message();
    switch (step_) {
    case Step::save: return why;
    case Step::find: return name_ + " could not be found (" + why + ")";
    case Step::findFolder: return "the folder of " + name_ + " could not be found (" + why + ")";
    case Step::readOnlyFile: return name_ + " is read-only (" + why + ")";
    case Step::readOnlyFolder: return "the folder of " + name_ + " is read-only (" + why + ")";
    case Step::checkPermissions: return "the permissions of " + name_ + " could not be checked (" + why + ")";
    case Step::checkFolderPermissions:
        return "the permissions of the folder of " + name_ + " could not be checked (" + why + ")";
    case Step::read: return name_ + " could not be read (" + why + ")";
    case Step::createTemporary: return "the temporary file " + name_ + " could not be created (" + why + ")";
    case Step::writeTemporary: return "the temporary file " + name_ + " could not be written (" + why + ")";
    case Step::readBackTemporary: return "the temporary file " + name_ + " could not be read back (" + why + ")";
    case Step::setPermissions:
        return "the permissions of the temporary file " + name_ + " could not be set (" + why + ")";
    case Step::putBack:
        return "the file changed by another app could not be put back as " + name_ + " (" + why + ")";
    }
    return why;
}

} // namespace quillon::files
