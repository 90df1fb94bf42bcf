// Windows need an application: one for the whole program, without a screen.
#include <gtest/gtest.h>

#include <QApplication>
#include <memory>

namespace sonra::test {
namespace {

class QtEnvironment : public testing::Environment {
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        application_ = std::make_unique<QApplication>(argc_, argv_);
    }
    void TearDown() override { application_.reset(); }

    char name_[16] = "test_widgets";
    char* argv_[2] = {name_, nullptr};
    int argc_ = 1;
    std::unique_ptr<QApplication> application_;
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new QtEnvironment);

}  // namespace
}  // namespace sonra::test
