// Throughput of the image core's channel codecs on 4096 × 4096 layers of realistic content.
// Bytes processed are the bytes of the decoded pixel buffer (width × height × pixel size).
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <libdeflate.h>

#include "ImageContent.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"
#include "psdkit/platform/image/Zip.hpp"

namespace psdkit::bench {
using image::AnyChannelData;
using image::ChannelDataCompressionType;
using image::PredictionType;

constexpr image::IntegralSize benchSize{4096, 4096};

template <typename P> const image::PixelBuffer<P>& content(Content c)
{
    static std::map<Content, std::unique_ptr<image::PixelBuffer<P>>> cache;
    auto& slot = cache[c];
    if (!slot) {
        if constexpr (std::is_same_v<P, image::PixelARGB8>) {
            slot = makeARGB8(benchSize, c);
        } else if constexpr (std::is_same_v<P, image::PixelRGBA16>) {
            slot = makeRGBA16(benchSize, c);
        } else {
            slot = makeRGBA32(benchSize, c);
        }
    }
    return *slot;
}

std::vector<const AnyChannelData*> pointers(const std::vector<AnyChannelData>& channels)
{
    std::vector<const AnyChannelData*> result;
    for (const auto& c : channels) {
        result.push_back(&c);
    }
    return result;
}

std::size_t storedBytes(const std::vector<AnyChannelData>& channels)
{
    std::size_t n = 0;
    for (const auto& c : channels) {
        n += c.compressedData.size() + c.rowByteCounts.size() * 2;
    }
    return n;
}

Content contentArg(const benchmark::State& state)
{
    return state.range(0) == 0 ? Content::photo : Content::shapes;
}

// The reference: copying the same number of bytes into a buffer that is already mapped.
void BM_Memcpy(benchmark::State& state)
{
    const std::size_t n = static_cast<std::size_t>(benchSize.width * benchSize.height * 4);
    std::vector<std::uint8_t> from(n, 1), to(n, 2);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), n);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * n));
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

// The same copy into freshly allocated memory, as every decoder that returns a new buffer pays it.
void BM_MemcpyFresh(benchmark::State& state)
{
    const std::size_t n = static_cast<std::size_t>(benchSize.width * benchSize.height * 4);
    std::vector<std::uint8_t> from(n, 1);
    for (auto _ : state) {
        const auto to = std::make_unique_for_overwrite<std::uint8_t[]>(n);
        std::memcpy(to.get(), from.data(), n);
        benchmark::DoNotOptimize(to.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * n));
}
BENCHMARK(BM_MemcpyFresh)->Unit(benchmark::kMillisecond);

template <typename P>
void BM_Decode(benchmark::State& state, ChannelDataCompressionType compression, PredictionType prediction,
               bool worker = false)
{
    const auto& source = content<P>(contentArg(state));
    const auto channels = source.makeChannelData(false, compression, prediction, false);
    const auto list = pointers(channels);
    for (auto _ : state) {
        image::PixelBuffer<P> decoded(benchSize, list, false, {}, worker);
        benchmark::DoNotOptimize(decoded.bytes().data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * source.bytes().size()));
    state.counters["stored%"] =
        100.0 * static_cast<double>(storedBytes(channels)) / static_cast<double>(source.bytes().size());
    state.SetLabel(contentName(contentArg(state)));
}

template <typename P>
void BM_Encode(benchmark::State& state, ChannelDataCompressionType compression, PredictionType prediction,
               bool worker)
{
    const auto& source = content<P>(contentArg(state));
    std::size_t stored = 0;
    for (auto _ : state) {
        const auto channels = source.makeChannelData(false, compression, prediction, worker);
        stored = storedBytes(channels);
        benchmark::DoNotOptimize(channels.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * source.bytes().size()));
    state.counters["stored%"] =
        100.0 * static_cast<double>(stored) / static_cast<double>(source.bytes().size());
    state.SetLabel(contentName(contentArg(state)));
}

// libdeflate's inflate alone on the very streams of the ZIP benchmarks, into mapped planes: the
// ceiling for decoding ZIP channels.
template <typename P> void BM_InflateOnly(benchmark::State& state, PredictionType prediction)
{
    const auto& source = content<P>(contentArg(state));
    const auto channels = source.makeChannelData(false, ChannelDataCompressionType::zip, prediction, false);
    const std::size_t plane = source.bytes().size() / 4;
    std::vector<std::uint8_t> out(plane);
    libdeflate_decompressor* d = libdeflate_alloc_decompressor();
    for (auto _ : state) {
        for (const auto& c : channels) {
            std::size_t produced = 0;
            libdeflate_zlib_decompress(d, c.compressedData.data(), c.compressedData.size(), out.data(), plane,
                                       &produced);
            benchmark::DoNotOptimize(out.data());
        }
    }
    libdeflate_free_decompressor(d);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * source.bytes().size()));
    state.SetLabel(contentName(contentArg(state)));
}

// Deflate level against size: one predicted 16-bit layer compressed at each level.
void BM_DeflateLevel(benchmark::State& state)
{
    const auto& source = content<image::PixelRGBA16>(state.range(1) == 0 ? Content::photo : Content::shapes);
    // The predicted planes as the encoder hands them to deflate.
    const auto raw =
        source.makeChannelData(false, ChannelDataCompressionType::zip, PredictionType::prediction, false);
    std::vector<std::vector<std::uint8_t>> planes;
    for (const auto& c : raw) {
        std::vector<std::uint8_t> plane(source.bytes().size() / 4);
        detail::zlibInflate(c.compressedData, plane);
        planes.push_back(std::move(plane));
    }
    const int level = static_cast<int>(state.range(0));
    std::size_t stored = 0;
    for (auto _ : state) {
        stored = 0;
        for (const auto& plane : planes) {
            stored += detail::zlibDeflate(plane, level).size();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * source.bytes().size()));
    state.counters["stored%"] =
        100.0 * static_cast<double>(stored) / static_cast<double>(source.bytes().size());
    state.SetLabel(state.range(1) == 0 ? "photo" : "shapes");
}

using C = ChannelDataCompressionType;
using Pr = PredictionType;
using image::PixelARGB8;
using image::PixelRGBA16;
using image::PixelRGBA32;

// Single-threaded figures are per CPU second (the machines are shared); those that may use a worker
// thread are per wall-clock second.
template <typename F> void registerWithContents(const char* name, F&& f, bool wallClock = false)
{
    auto* b =
        benchmark::RegisterBenchmark(name, std::forward<F>(f))->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
    if (wallClock) {
        b->UseRealTime();
    }
}

void registerAll()
{
    registerWithContents("decode/raw/argb8", [](auto& s) { BM_Decode<PixelARGB8>(s, C::none, Pr::none); });
    registerWithContents("decode/rle/argb8", [](auto& s) { BM_Decode<PixelARGB8>(s, C::rle, Pr::none); });
    registerWithContents(
        "decode/rle/argb8/wall", [](auto& s) { BM_Decode<PixelARGB8>(s, C::rle, Pr::none); }, true);
    registerWithContents(
        "decode/rle/argb8/worker/wall", [](auto& s) { BM_Decode<PixelARGB8>(s, C::rle, Pr::none, true); },
        true);
    registerWithContents("encode/rle/argb8",
                         [](auto& s) { BM_Encode<PixelARGB8>(s, C::rle, Pr::none, false); });
    registerWithContents(
        "encode/rle/argb8/wall", [](auto& s) { BM_Encode<PixelARGB8>(s, C::rle, Pr::none, false); }, true);
    registerWithContents(
        "encode/rle/argb8/worker/wall", [](auto& s) { BM_Encode<PixelARGB8>(s, C::rle, Pr::none, true); },
        true);
    registerWithContents("decode/zip/argb8", [](auto& s) { BM_Decode<PixelARGB8>(s, C::zip, Pr::none); });
    registerWithContents("inflate-only/zip/argb8", [](auto& s) { BM_InflateOnly<PixelARGB8>(s, Pr::none); });
    registerWithContents("decode/raw/rgba16", [](auto& s) { BM_Decode<PixelRGBA16>(s, C::none, Pr::none); });
    registerWithContents("decode/zippred/rgba16",
                         [](auto& s) { BM_Decode<PixelRGBA16>(s, C::zip, Pr::prediction); });
    registerWithContents(
        "decode/zippred/rgba16/wall", [](auto& s) { BM_Decode<PixelRGBA16>(s, C::zip, Pr::prediction); },
        true);
    registerWithContents(
        "decode/zippred/rgba16/worker/wall",
        [](auto& s) { BM_Decode<PixelRGBA16>(s, C::zip, Pr::prediction, true); }, true);
    registerWithContents("inflate-only/zippred/rgba16",
                         [](auto& s) { BM_InflateOnly<PixelRGBA16>(s, Pr::prediction); });
    registerWithContents("encode/zippred/rgba16",
                         [](auto& s) { BM_Encode<PixelRGBA16>(s, C::zip, Pr::prediction, false); });
    registerWithContents(
        "encode/zippred/rgba16/wall",
        [](auto& s) { BM_Encode<PixelRGBA16>(s, C::zip, Pr::prediction, false); }, true);
    registerWithContents(
        "encode/zippred/rgba16/worker/wall",
        [](auto& s) { BM_Encode<PixelRGBA16>(s, C::zip, Pr::prediction, true); }, true);
    registerWithContents("decode/zippred/rgba32",
                         [](auto& s) { BM_Decode<PixelRGBA32>(s, C::zip, Pr::prediction); });
    registerWithContents("inflate-only/zippred/rgba32",
                         [](auto& s) { BM_InflateOnly<PixelRGBA32>(s, Pr::prediction); });
    registerWithContents("encode/zippred/rgba32",
                         [](auto& s) { BM_Encode<PixelRGBA32>(s, C::zip, Pr::prediction, false); });
    benchmark::RegisterBenchmark("deflate-level/zippred/rgba16", BM_DeflateLevel)
        ->ArgsProduct({{1, 2, 3, 4, 5, 6, 9}, {0, 1}})
        ->Unit(benchmark::kMillisecond);
}

} // namespace psdkit::bench

int main(int argc, char** argv)
{
    psdkit::bench::registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
