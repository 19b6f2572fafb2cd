// 100,000 small buffers, as a scene of many objects makes them, created and
// freed on the device (the software device where there is no GPU). They take
// pieces of shared blocks: the device sees a handful of allocations, far below
// the 4,096 that real drivers often allow.
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/Device.hpp"
#include "nerox/vk/MemoryAllocator.hpp"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

nerox::vk::Device& BenchDevice() {
    static std::unique_ptr<nerox::vk::Device> const device = [] {
        nerox::vk::DeviceOptions options;
        options.applicationName = "tessara_bench";
        return std::make_unique<nerox::vk::Device>(options);
    }();
    return *device;
}

void BM_SmallBuffers(benchmark::State& state) {
    nerox::vk::Device& device = BenchDevice();
    std::vector<std::unique_ptr<nerox::vk::MappedBuffer<float>>> buffers;
    buffers.reserve(static_cast<size_t>(state.range(0)));
    uint64_t const before = device.Allocator().DeviceAllocations();
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i)
            buffers.push_back(std::make_unique<nerox::vk::MappedBuffer<float>>(
                device, 16, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "small", 16));
        buffers.clear();
    }
    state.counters["device_allocations"] = static_cast<double>(device.Allocator().DeviceAllocations() - before);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

} // namespace

BENCHMARK(BM_SmallBuffers)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(1);
