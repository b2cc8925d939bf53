// psdkit export FILE DIR: every image of a document as PNG, and index.html to look at them.
#include <cstdio>
#include <filesystem>
#include <unistd.h>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"
#include "HtmlIndex.hpp"
#include "LayerTree.hpp"
#include "Png.hpp"

namespace psdkit::cli {

namespace {

namespace fs = std::filesystem;

/// A file-name-safe form of a layer or channel name: letters, digits, '-' and '_' kept, runs of
/// anything else turned into one '_', at most 40 characters.
std::string slug(const std::string& name)
{
    std::string out;
    for (const char c : name) {
        const auto u = static_cast<unsigned char>(c);
        const bool keep =
            (u >= '0' && u <= '9') || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || c == '-';
        if (keep) {
            out += c;
        } else if (!out.empty() && out.back() != '_') {
            out += '_';
        }
        if (out.size() >= 40) {
            break;
        }
    }
    while (!out.empty() && out.back() == '_') {
        out.pop_back();
    }
    return out;
}

std::string numbered(const char* prefix, std::size_t index, const std::string& name, const char* suffix)
{
    char number[32];
    std::snprintf(number, sizeof number, "%s-%03zu", prefix, index);
    const std::string tail = slug(name);
    return std::string(number) + (tail.empty() ? "" : "-" + tail) + suffix;
}

/// Writes the files of one export and removes them again unless the export completes.
class ExportSession {
  public:
    ExportSession(fs::path directory, const PSDWrapper& document, std::size_t total)
        : directory_(std::move(directory)), document_(document), total_(total),
          showProgress_(::isatty(2) == 1)
    {
        iccProfile_ = document.colorSpace.iccData();
    }
    ExportSession(const ExportSession&) = delete;
    ExportSession& operator=(const ExportSession&) = delete;

    ~ExportSession()
    {
        clearProgress();
        if (!committed_) {
            std::error_code ec;
            for (const fs::path& file : written_) {
                fs::remove(file, ec);
            }
        }
    }

    /// Writes `image` as `name`; returns the name, or "" when the image has no pixels.
    std::string writeImage(const image::PixelBufferType* image, const std::string& name)
    {
        if (!image) {
            return {};
        }
        const auto pixels = pngPixels(*image);
        if (!pixels) {
            return {};
        }
        progress(name);
        PngOptions options;
        // Colour images carry the document's profile. A PNG allows only grey profiles on grey
        // images, and masks and alpha channels hold coverage rather than colour: they get none.
        if (pixels->channels == 4) {
            options.iccProfile = iccProfile_;
            options.iccProfileName = document_.colorSpace.name();
        }
        toneMapped_ = toneMapped_ || pixels->toneMapped;
        writeFile(name, encodePng(*pixels, options));
        return name;
    }

    void writeFile(const std::string& name, const std::string& text)
    {
        writeFile(name, std::vector<std::uint8_t>(text.begin(), text.end()));
    }

    void commit() { committed_ = true; }
    [[nodiscard]] bool toneMapped() const noexcept { return toneMapped_; }
    [[nodiscard]] std::size_t fileCount() const noexcept { return written_.size(); }

  private:
    void writeFile(const std::string& name, const std::vector<std::uint8_t>& bytes)
    {
        const fs::path path = directory_ / name;
        onFile(path, [&] { writeFileAtomically(path, bytes); });
        written_.push_back(path);
    }

    void progress(const std::string& name)
    {
        ++done_;
        if (showProgress_) {
            std::fprintf(stderr, "\r\033[Kexporting %zu/%zu %s", done_, total_, name.c_str());
            std::fflush(stderr);
        }
    }

    void clearProgress() const
    {
        if (showProgress_ && done_ > 0) {
            std::fprintf(stderr, "\r\033[K");
        }
    }

    fs::path directory_;
    const PSDWrapper& document_;
    std::optional<std::vector<std::uint8_t>> iccProfile_;
    std::vector<fs::path> written_;
    std::size_t total_;
    std::size_t done_ = 0;
    bool showProgress_;
    bool toneMapped_ = false;
    bool committed_ = false;
};

std::size_t countImages(const PSDWrapper& document)
{
    std::size_t count = 2; // the composite and the rendering
    for (const auto& layer : document.layers) {
        count += (layer->contentImage() ? 1 : 0) + (layer->maskImage() ? 1 : 0);
    }
    return count + (document.alphaChannels ? document.alphaChannels->size() : 0);
}

} // namespace

int runExport(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {});
    arguments.expectPositional(2, 2);
    const fs::path input = arguments.positional()[0];
    const fs::path directory = arguments.positional()[1];
    const PSDWrapper document = onFile(input, [&] { return readDocument(input); });
    const LayerTree tree = buildLayerTree(document.layers);

    onFile(directory, [&] {
        std::error_code ec;
        fs::create_directories(directory, ec);
        if (ec || !fs::is_directory(directory)) {
            throw IoError(ec ? ec.message() : "not a directory");
        }
    });

    ExportSession session(directory, document, countImages(document));
    ExportedFiles files;
    // The composite's decoding failure is not fatal: the rendering of the layers takes its place.
    const bool renderable = !document.layers.empty() && document.imageWidth > 0 && document.imageHeight > 0;
    const auto rendered = renderable ? renderOrRefuse(document) : nullptr;
    const auto composite = document.compositeImage();
    files.composite = session.writeImage(composite ? composite.get() : rendered.get(), "composite.png");
    files.rendered = session.writeImage(rendered.get(), "rendered.png");
    for (std::size_t i = 0; i < document.layers.size(); ++i) {
        const PSDLayerWrapper& layer = *document.layers[i];
        files.layerContent.push_back(
            session.writeImage(layer.contentImage().get(), numbered("layer", i, layer.name, ".png")));
        files.layerMask.push_back(
            session.writeImage(layer.maskImage().get(), numbered("layer", i, layer.name, "-mask.png")));
    }
    if (document.alphaChannels) {
        for (std::size_t i = 0; i < document.alphaChannels->size(); ++i) {
            const PSDAlphaChannel& channel = *(*document.alphaChannels)[i];
            files.alphaChannels.push_back(session.writeImage(
                channel.image.get(), numbered("alpha", i, channel.name.value_or(""), ".png")));
        }
    }
    session.writeFile("index.html", htmlIndex(input.filename().string(), document, tree, files));
    session.commit();
    if (session.toneMapped()) {
        std::fprintf(stderr,
                     "note: the document has 32-bit samples; they were clipped to 0..1 and written as "
                     "16-bit PNGs\n");
    }
    std::printf("%s: %zu files written to %s\n", input.c_str(), session.fileCount(), directory.c_str());
    return exitSuccess;
}

} // namespace psdkit::cli
