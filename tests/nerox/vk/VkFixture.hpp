#pragma once
// One Vulkan device for the whole test program, with validation on: a test
// fails when the layers report an error while it runs.
#include "nerox/vk/Device.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace vktest {

/// The message of the exception of type E that f throws; "no exception" when it throws none.
template <class E = std::runtime_error, class F>
std::string Thrown(F&& f)
{
    try {
        f();
    } catch (E const& e) {
        return e.what();
    }
    return "no exception";
}

class VkTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        nerox::vk::DeviceOptions options;
        options.applicationName = "nerox_vk_tests";
        options.validation = 1;
        if (!device) device = std::make_unique<nerox::vk::Device>(options);
    }
    void SetUp() override { errorsBefore = nerox::vk::Device::ValidationErrorCount(); }
    void TearDown() override
    {
        EXPECT_EQ(nerox::vk::Device::ValidationErrorCount(), errorsBefore + expectedErrors)
            << "validation errors while the test ran (printed above)";
    }
    nerox::vk::Device& Dev() { return *device; }

    inline static std::unique_ptr<nerox::vk::Device> device;
    uint64_t errorsBefore = 0;
    uint64_t expectedErrors = 0; ///< Set by a test that provokes errors on purpose.
};

} // namespace vktest
