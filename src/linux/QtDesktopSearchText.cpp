#include "linux/QtDesktopSearchText.h"

#include "frame/Text.h"

namespace sonra::desktopSearch {
namespace {

constexpr std::size_t longest = 160;

}  // namespace

QString oneLine(const std::string& text) {
    return QString::fromStdString(std::string(text::prefix(text, longest))).simplified();
}

}  // namespace sonra::desktopSearch
