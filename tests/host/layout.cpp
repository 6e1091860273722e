// The layout as a C++ host sees it.
#include "layout.h"

#include <type_traits>

// Records cross the boundary as C knows them.
static_assert(std::is_standard_layout_v<TransPortParam> && std::is_trivial_v<TransPortParam>);
static_assert(std::is_standard_layout_v<BackUpParam> && std::is_trivial_v<BackUpParam>);
static_assert(std::is_standard_layout_v<IccCardCmd> && std::is_trivial_v<IccCardCmd>);
static_assert(noexcept(ICC_CardCmd(nullptr)));
