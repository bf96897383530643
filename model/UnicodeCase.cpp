#include "model/UnicodeCase.h"

#include <locale.h>
#include <wctype.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif

namespace quillon::model {
namespace {

// A locale of its own rather than the global one, which the program may never set. glibc names its
// built-in Unicode locale "C.UTF-8"; macOS names it "UTF-8".
locale_t unicodeLocale() noexcept
{
#ifdef __APPLE__
    static const locale_t loc = newlocale(LC_CTYPE_MASK, "UTF-8", locale_t(nullptr));
#else
    static const locale_t loc = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
#endif
    return loc;
}

} // namespace

char32_t unicodeLowerCase(char32_t c) noexcept
{
    const locale_t loc = unicodeLocale();
    return loc ? static_cast<char32_t>(towlower_l(static_cast<wint_t>(c), loc)) : c;
}

bool isUnicodeSpace(char32_t c) noexcept
{
    const locale_t loc = unicodeLocale();
    return loc ? iswspace_l(static_cast<wint_t>(c), loc) != 0 : false;
}

} // namespace quillon::model
