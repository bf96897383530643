#include "ui/Icons.h"

// The drawings are compiled into this static library; a program that links it must register them once.
static void registerBundledIcons()
{
    Q_INIT_RESOURCE(icons);
}

namespace quillon::ui::icons {
namespace {

void registerOnce()
{
    static const bool registered = (registerBundledIcons(), true);
    (void)registered;
}

QIcon themed(const char* name, const char* fallback)
{
    registerOnce();
    return QIcon::fromTheme(QString::fromLatin1(name), QIcon(QString::fromLatin1(fallback)));
}

} // namespace

QIcon lock()
{
    return themed("system-lock-screen", ":/icons/lock.svg");
}

QIcon newEntry()
{
    return themed("document-new", ":/icons/new-entry.svg");
}

QIcon newGroup()
{
    return themed("folder-new", ":/icons/new-group.svg");
}

QIcon removeKeyFile()
{
    return themed("edit-clear", ":/icons/remove.svg");
}

QIcon keyFile()
{
    return themed("dialog-password", ":/icons/key.svg");
}

QIcon eye()
{
    return themed("view-visible", ":/icons/eye.svg");
}

QIcon eyeSlash()
{
    return themed("view-hidden", ":/icons/eye-slash.svg");
}

QIcon copy()
{
    return themed("edit-copy", ":/icons/copy.svg");
}

QIcon openUrl()
{
    return themed("internet-web-browser", ":/icons/link.svg");
}

QIcon history()
{
    return themed("document-open-recent", ":/icons/history.svg");
}

QIcon add()
{
    return themed("list-add", ":/icons/add.svg");
}

QIcon remove()
{
    return themed("list-remove", ":/icons/remove.svg");
}

QIcon application()
{
    registerOnce();
    return QIcon(QStringLiteral(":/icons/quillon.svg"));
}

} // namespace quillon::ui::icons
