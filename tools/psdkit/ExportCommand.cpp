// psdkit export FILE DIR [--threads N]: every image of a document as PNG, and index.html to look at them.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <unistd.h>
#include <utf8proc.h>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"
#include "HtmlIndex.hpp"
#include "LayerFacts.hpp"
#include "LayerTree.hpp"
#include "Png.hpp"
#include "Thumbnail.hpp"
#include "Unmatte.hpp"
#include "psdkit/platform/support/ParallelWork.hpp"

namespace psdkit::cli {

namespace {

namespace fs = std::filesystem;

/// A file-name-safe form of a layer or channel name: letters and digits of any script, '-' and
/// '_' kept, runs of anything else turned into one '_', at most 40 bytes of UTF-8.
std::string slug(const std::string& name)
{
    std::string out;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(name.data());
    auto remaining = static_cast<utf8proc_ssize_t>(name.size());
    while (remaining > 0) {
        utf8proc_int32_t codepoint = 0;
        utf8proc_ssize_t length = utf8proc_iterate(bytes, remaining, &codepoint);
        if (length <= 0) {
            length = 1; // a stray byte counts as a separator
            codepoint = -1;
        }
        const auto category = codepoint < 0 ? UTF8PROC_CATEGORY_CN : utf8proc_category(codepoint);
        const bool keep = codepoint == '-' || codepoint == '_' ||
                          (category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_LO) ||
                          (category >= UTF8PROC_CATEGORY_ND && category <= UTF8PROC_CATEGORY_NO);
        if (keep) {
            if (out.size() + static_cast<std::size_t>(length) > 40) {
                break;
            }
            out.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
        } else if (!out.empty() && out.back() != '_') {
            out += '_';
        }
        bytes += length;
        remaining -= length;
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

/// The file that lists what an export wrote, so that the next export into the folder can clear it.
constexpr const char* kManifestName = ".psdkit-export";

/// Makes `directory` ready for an export: created when missing; a previous psdkit export in it
/// (the files its manifest lists) removed. Throws IoError when it cannot be created or holds
/// anything else, so that an export never mixes with, or deletes, files it did not write.
void prepareFolder(const fs::path& directory)
{
    std::error_code ec;
    fs::create_directories(directory, ec);
    if (ec || !fs::is_directory(directory)) {
        throw IoError(ec ? ec.message() : "not a directory");
    }
    std::set<std::string> listed;
    std::ifstream manifest(directory / kManifestName);
    for (std::string line; std::getline(manifest, line);) {
        if (!line.empty() && line.find('/') == std::string::npos) {
            listed.insert(line);
        }
    }
    std::vector<fs::path> previous;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, ec)) {
        const std::string name = entry.path().filename().string();
        if (name == kManifestName) {
            continue;
        }
        if (!listed.contains(name) || !entry.is_regular_file()) {
            throw IoError("the folder holds files that psdkit export did not write (\"" + name +
                          "\"); export into an empty or new folder");
        }
        previous.push_back(entry.path());
    }
    if (ec) {
        throw IoError(ec.message());
    }
    previous.push_back(directory / kManifestName);
    for (const fs::path& file : previous) {
        fs::remove(file, ec);
    }
}

/// Writes the files of one export and removes them again unless the export completes. Images are
/// queued and then converted, encoded and written on several threads at once; what is written,
/// the manifest and the failure reported are the same as writing them one after another.
class ExportSession {
  public:
    ExportSession(fs::path directory, const PSDWrapper& document, std::size_t total, unsigned threads)
        : directory_(std::move(directory)), document_(document), total_(total), threads_(threads),
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

    /// Queues `image` to be written as `name`, with (unless `withThumbnail` is false) a small copy
    /// beside it when it is large; `*result` names the files once `writeQueuedImages` has run, and
    /// stays empty for an image without pixels. `result` must outlive that call.
    void queueImage(std::shared_ptr<const image::PixelBufferType> image, std::string name,
                    ExportedImage* result, bool withThumbnail = true)
    {
        if (image) {
            queued_.push_back({std::move(image), std::move(name), withThumbnail, result, {}, false});
        }
    }

    /// Writes the queued images on the session's threads. Throws the failure of the first image
    /// (in queue order) that failed; the files of every image are removed unless committed.
    void writeQueuedImages()
    {
        std::exception_ptr failure;
        try {
            detail::parallelForEach(queued_.size(), threads_, [&](std::size_t i) { writeImage(queued_[i]); });
        } catch (...) {
            failure = std::current_exception();
        }
        for (ImageJob& job : queued_) {
            written_.insert(written_.end(), job.files.begin(), job.files.end());
            toneMapped_ = toneMapped_ || job.toneMapped;
        }
        queued_.clear();
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

    void writeFile(const std::string& name, const std::string& text)
    {
        writeFile(name, std::vector<std::uint8_t>(text.begin(), text.end()));
    }

    void writeFile(const std::string& name, std::span<const std::uint8_t> bytes)
    {
        const fs::path path = directory_ / name;
        onFile(path, [&] { writeFileAtomically(path, bytes); });
        written_.push_back(path);
    }

    /// Records what was written in the folder's manifest and keeps the files.
    void commit()
    {
        std::string manifest;
        for (const fs::path& file : written_) {
            manifest += file.filename().string() + "\n";
        }
        const fs::path path = directory_ / kManifestName;
        onFile(path, [&] {
            writeFileAtomically(
                path, std::span(reinterpret_cast<const std::uint8_t*>(manifest.data()), manifest.size()));
        });
        clearProgress();
        committed_ = true;
    }
    [[nodiscard]] bool toneMapped() const noexcept { return toneMapped_; }
    [[nodiscard]] std::size_t fileCount() const noexcept { return written_.size(); }

  private:
    struct ImageJob {
        std::shared_ptr<const image::PixelBufferType> image;
        std::string name;
        bool withThumbnail;
        ExportedImage* result;
        std::vector<fs::path> files; // written so far, in order
        bool toneMapped;
    };

    // Runs on any of the session's threads: touches only `job` and the progress line.
    void writeImage(ImageJob& job)
    {
        const auto pixels = pngPixels(*job.image);
        if (!pixels) {
            return;
        }
        progress(job.name);
        PngOptions options;
        // Colour images carry the document's profile. A PNG allows only grey profiles on grey
        // images, and masks and alpha channels hold coverage rather than colour: they get none.
        if (pixels->channels == 4) {
            options.iccProfile = iccProfile_;
            options.iccProfileName = document_.colorSpace.name();
        }
        job.toneMapped = pixels->toneMapped;
        const auto write = [&](const std::string& name, const PngPixels& png) {
            const fs::path path = directory_ / name;
            onFile(path, [&] { writeFileAtomically(path, encodePng(png, options)); });
            job.files.push_back(path);
        };
        write(job.name, *pixels);
        ExportedImage exported{job.name, job.name}; // its own thumbnail unless it is large
        if (job.withThumbnail && std::max(pixels->width, pixels->height) > thumbnailSide) {
            exported.thumbnail = "thumb-" + job.name;
            write(exported.thumbnail, thumbnailPixels(*pixels));
        }
        *job.result = std::move(exported);
    }

    void progress(const std::string& name)
    {
        const std::lock_guard lock(progressMutex_);
        ++done_;
        if (showProgress_) {
            std::fprintf(stderr, "\r\033[Kexporting %zu/%zu %s", done_, total_, name.c_str());
            std::fflush(stderr);
        }
    }

    void clearProgress()
    {
        if (showProgress_ && done_ > 0) {
            std::fprintf(stderr, "\r\033[K");
            std::fflush(stderr);
        }
        done_ = 0;
    }

    fs::path directory_;
    const PSDWrapper& document_;
    std::optional<std::vector<std::uint8_t>> iccProfile_;
    std::vector<ImageJob> queued_;
    std::vector<fs::path> written_;
    std::size_t total_;
    unsigned threads_;
    std::mutex progressMutex_;
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

/// The name of a placed file's copy: "placed-007-name.ext", name and extension made safe.
std::string placedFileName(std::size_t index, const std::string& fileName)
{
    const auto dot = fileName.rfind('.');
    const std::string stem = dot == std::string::npos ? fileName : fileName.substr(0, dot);
    const std::string extension = dot == std::string::npos ? std::string() : slug(fileName.substr(dot + 1));
    return numbered("placed", index, stem, extension.empty() ? "" : ("." + extension).c_str());
}

/// Queues the composite as the page shows it: the stored merged image, un-matted when the document
/// has transparency; `note` says when it shows nothing.
void queueComposite(ExportSession& session, const PSDWrapper& document,
                    const std::shared_ptr<image::PixelBufferType>& rendered, ExportedFiles& files)
{
    std::string& note = files.compositeNote;
    // A composite that cannot be decoded is not fatal: the rendering takes its place, or the page
    // says there is none.
    const auto composite = document.compositeImage();
    if (!composite) {
        if (rendered) {
            note = "the file stores no composite: composite.png is the rendering of the layers";
        }
        session.queueImage(rendered, "composite.png", &files.composite, false);
        return;
    }
    if (document.compositeImageHasAlphaChannel) {
        unmatteFromWhite(*composite);
    }
    const bool anyLayerPixels =
        std::any_of(document.layers.begin(), document.layers.end(),
                    [](const auto& layer) { return layer->contentImage() != nullptr; });
    if (anyLayerPixels && isUniform(*composite)) {
        note =
            "the stored composite is blank (one colour throughout): the saving application did not store a "
            "merged image";
        if (rendered) {
            note += "; composite.png is the rendering of the layers";
            session.queueImage(rendered, "composite.png", &files.composite, false);
            return;
        }
    }
    session.queueImage(composite, "composite.png", &files.composite, false); // the page shows it large
}

} // namespace

int runExport(std::span<const std::string> args)
{
    const Arguments arguments(args, {"threads"}, {});
    arguments.expectPositional(2, 2);
    const fs::path input = arguments.positional()[0];
    const fs::path directory = arguments.positional()[1];
    PSDReadOptions options;
    options.keepUnknownBlocks = true; // placed files and text come from blocks kept whole
    options.threadCount = threadCountOption(arguments);
    const PSDWrapper document = onFile(input, [&] { return readDocument(input, options); });
    const LayerTree tree = buildLayerTree(document.layers);
    const std::vector<LayerFacts> facts = layerFacts(document);
    onFile(directory, [&] { prepareFolder(directory); });

    ExportSession session(directory, document, countImages(document),
                          detail::effectiveThreadCount(options.threadCount));
    ExportedFiles files;
    // The layers' rendering stands in for a stored composite that is missing or blank.
    const bool renderable = !document.layers.empty() && document.imageWidth > 0 && document.imageHeight > 0;
    PSDRenderOptions renderOptions;
    renderOptions.threadCount = options.threadCount;
    const auto rendered = renderable ? renderOrRefuse(document, renderOptions) : nullptr;
    queueComposite(session, document, rendered, files);
    session.queueImage(rendered, "rendered.png", &files.rendered, false);
    files.layerContent.resize(document.layers.size());
    files.layerMask.resize(document.layers.size());
    files.placedFiles.resize(document.layers.size());
    for (std::size_t i = 0; i < document.layers.size(); ++i) {
        const PSDLayerWrapper& layer = *document.layers[i];
        session.queueImage(layer.contentImage(), numbered("layer", i, layer.name, ".png"),
                           &files.layerContent[i]);
        session.queueImage(layer.maskImage(), numbered("layer", i, layer.name, "-mask.png"),
                           &files.layerMask[i]);
        if (facts[i].placedFile && facts[i].placedFile->embedded) {
            files.placedFiles[i] = placedFileName(i, facts[i].placedFile->fileName);
            session.writeFile(files.placedFiles[i], facts[i].placedFile->data);
        }
    }
    if (document.alphaChannels) {
        files.alphaChannels.resize(document.alphaChannels->size());
        for (std::size_t i = 0; i < document.alphaChannels->size(); ++i) {
            const PSDAlphaChannel& channel = *(*document.alphaChannels)[i];
            session.queueImage(channel.image, numbered("alpha", i, channel.name.value_or(""), ".png"),
                               &files.alphaChannels[i]);
        }
    }
    session.writeQueuedImages();
    session.writeFile("index.html", htmlIndex(input.filename().string(), document, tree, facts, files));
    session.commit();
    if (!files.compositeNote.empty()) {
        std::fprintf(stderr, "note: %s: %s\n", input.c_str(), files.compositeNote.c_str());
    }
    if (session.toneMapped()) {
        std::fprintf(stderr,
                     "note: %s: the document has 32-bit samples; they were clipped to 0..1 and written as "
                     "16-bit PNGs\n",
                     input.c_str());
    }
    std::printf("%s: %zu files written to %s\n", input.c_str(), session.fileCount(), directory.c_str());
    return exitSuccess;
}

} // namespace psdkit::cli
