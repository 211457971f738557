#ifndef PLATFORM_CORE_STRING_H
#define PLATFORM_CORE_STRING_H

#include <string>
#include <string_view>

namespace ara::core {

using String = std::string;
using StringView = std::string_view;

}  // namespace ara::core

#endif
