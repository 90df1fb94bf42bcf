#include "ui/LevelSteps.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "ui/SpeedFormat.h"

namespace sonra::menu {
namespace {

constexpr std::array<double, 11> volumes{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
constexpr std::array<double, 9> speeds{0.5, 0.8, 1, 1.2, 1.5, 1.8, 2, 2.5, 3};

std::size_t nearest(std::span<const double> steps, double level) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < steps.size(); ++i)
        if (std::abs(steps[i] - level) <= std::abs(steps[best] - level)) best = i;
    return best;
}

MenuRow step(std::string label, bool isNearest, std::function<void()> choose) {
    MenuRow row;
    row.id = label;
    row.title = {{std::move(label), MenuText::Role::label, {}}};
    row.isChecked = isNearest;
    row.onClick = std::move(choose);
    return row;
}

}  // namespace

std::vector<MenuRow> volumeSteps(std::int64_t percent,
                                 const std::function<void(std::int64_t percent)>& choose) {
    const auto checked = nearest(volumes, static_cast<double>(percent));
    std::vector<MenuRow> rows;
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        const auto level = static_cast<std::int64_t>(volumes[i]);
        rows.push_back(
            step(std::to_string(level) + "%", i == checked, [choose, level] { choose(level); }));
    }
    return rows;
}

std::vector<MenuRow> speedSteps(double speed, const std::function<void(double speed)>& choose) {
    const auto checked = nearest(speeds, speed);
    std::vector<MenuRow> rows;
    for (std::size_t i = 0; i < speeds.size(); ++i)
        rows.push_back(step(formatSpeed(speeds[i]), i == checked,
                            [choose, level = speeds[i]] { choose(level); }));
    return rows;
}

}  // namespace sonra::menu
