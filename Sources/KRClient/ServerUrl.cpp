#include "KRClient/Internal/ServerUrl.h"

#include <string_view>

namespace KRC {

bool ServerUrlHasUserInfo(const ZR::UniString& url) {
    std::string_view text = url.Std();
    std::size_t scheme = text.find("://");
    std::string_view rest = scheme == std::string_view::npos ? text : text.substr(scheme + 3);
    // The authority ends at the path, the query or the fragment.
    std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    return authority.find('@') != std::string_view::npos;
}

}  // namespace KRC
