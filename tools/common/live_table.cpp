#include "live_table.h"

#include <algorithm>
#include <iostream>

namespace tools {

namespace {

constexpr auto kRedrawEvery = std::chrono::milliseconds(100);

}  // namespace

bool LiveTable::due() const {
    return terminal_ &&
           Clock::now().time_since_epoch() - Clock::duration(lastDraw_.load()) >= kRedrawEvery;
}

void LiveTable::draw(const std::string& text) {
    if (terminal_ && drawnLines_ > 0) {
        std::cout << "\x1b[" << drawnLines_ << 'A';  // the cursor up to the last drawing
    }
    std::cout << text << std::flush;
    drawnLines_ = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    lastDraw_.store(Clock::now().time_since_epoch().count());
}

}  // namespace tools
