#include "utils/StringUtils.h"

namespace utils {

std::vector<std::string> split(const std::string& s, const std::string& sep) {
    std::vector<std::string> parts;
    if (sep.empty()) {
        parts.push_back(s);
        return parts;
    }
    std::string::size_type begin = 0;
    for (;;) {
        const std::string::size_type at = s.find(sep, begin);
        if (at == std::string::npos) break;
        parts.push_back(s.substr(begin, at - begin));
        begin = at + sep.size();
    }
    parts.push_back(s.substr(begin));
    return parts;
}

}  // namespace utils
