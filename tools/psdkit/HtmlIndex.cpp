#include "HtmlIndex.hpp"

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace psdkit::cli {

namespace {

constexpr std::pair<const char*, const char*> kBlendModeNames[] = {
    {"pass", "Pass Through"},  {"norm", "Normal"},       {"diss", "Dissolve"},    {"dark", "Darken"},
    {"mul ", "Multiply"},      {"idiv", "Color Burn"},   {"lbrn", "Linear Burn"}, {"dkCl", "Darker Color"},
    {"lite", "Lighten"},       {"scrn", "Screen"},       {"div ", "Color Dodge"}, {"lddg", "Linear Dodge"},
    {"lgCl", "Lighter Color"}, {"over", "Overlay"},      {"sLit", "Soft Light"},  {"hLit", "Hard Light"},
    {"vLit", "Vivid Light"},   {"lLit", "Linear Light"}, {"pLit", "Pin Light"},   {"hMix", "Hard Mix"},
    {"diff", "Difference"},    {"smud", "Exclusion"},    {"fsub", "Subtract"},    {"fdiv", "Divide"},
    {"hue ", "Hue"},           {"sat ", "Saturation"},   {"colr", "Color"},       {"lum ", "Luminosity"},
};

constexpr const char* kStyle = R"(
body { font: 14px/1.4 system-ui, sans-serif; margin: 2em; color: #222; }
h1 { font-size: 1.3em; } h2 { font-size: 1.1em; margin-top: 2em; }
.facts td { padding: 0 1em 0 0; }
.checker { background: repeating-conic-gradient(#ccc 0 25%, #fff 0 50%) 0 0 / 16px 16px; }
.note { color: #a40; }
.composite img { max-width: 100%; max-height: 70vh; border: 1px solid #999; }
ul.tree { list-style: none; padding-left: 1.5em; border-left: 1px dotted #bbb; }
ul.tree.root { padding-left: 0; border: none; }
.layer { display: flex; align-items: center; gap: 1em; margin: 0.3em 0; }
.thumb { width: 96px; height: 96px; display: flex; align-items: center; justify-content: center;
         border: 1px solid #999; flex: none; background: #f4f4f4; }
.thumb img { max-width: 96px; max-height: 96px; display: block; }
.thumb.empty { color: #999; font-size: 0.8em; }
.hidden { opacity: 0.45; }
.clipped { margin-left: 1.5em; border-left: 3px solid #6a8fd0; padding-left: 0.5em; }
.clip-mark { color: #6a8fd0; font-size: 0.85em; }
.text { color: #333; font-style: italic; }
.kind { color: #666; font-size: 0.85em; } .name { font-weight: 600; }
.details { color: #444; font-size: 0.9em; }
)";

std::string escape(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\0':
            out += "&#x2400;"; // a visible symbol for a stored terminating zero
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string format(const char* pattern, auto... values)
{
    char text[256];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

// The checkerboard lies behind the image only: the rest of the box is plain background, so that
// the letterbox of a non-square image does not look like transparency.
std::string thumbnail(const ExportedImage& image, const std::string& alt, const char* emptyText = "no pixels")
{
    if (image.empty()) {
        return std::string("<div class=\"thumb empty\">") + emptyText + "</div>";
    }
    return "<div class=\"thumb\"><a href=\"" + escape(image.file) + "\"><img class=\"checker\" src=\"" +
           escape(image.thumbnail) + "\" alt=\"" + escape(alt) + "\"></a></div>";
}

class PageWriter {
  public:
    PageWriter(const PSDWrapper& document, const LayerTree& tree, const std::vector<LayerFacts>& facts,
               const ExportedFiles& files)
        : document_(document), tree_(tree), facts_(facts), files_(files)
    {
    }

    void nodes(const std::vector<LayerNode>& list, bool root)
    {
        out += root ? "<ul class=\"tree root\">\n" : "<ul class=\"tree\">\n";
        for (const LayerNode& node : list) {
            layer(node);
        }
        out += "</ul>\n";
    }

    std::string out;

  private:
    void layer(const LayerNode& node)
    {
        const PSDLayerWrapper& layer = *document_.layers[node.index];
        const LayerFacts& facts = facts_[node.index];
        const PSDMacRect& r = layer.contentsRect;
        const ExportedImage& content = files_.layerContent[node.index];
        const ExportedImage& mask = files_.layerMask[node.index];
        const bool groupHidden = !tree_.ancestorsVisible[node.index];
        out += std::string("<li><div class=\"layer") + (layer.visible && !groupHidden ? "" : " hidden") +
               (layer.clipping ? " clipped" : "") + "\">";
        out += thumbnail(content, layer.name, node.isGroup ? "group" : "no pixels");
        if (!mask.empty()) {
            out += thumbnail(mask, layer.name + " mask");
        }
        out += "<div>";
        if (layer.clipping) {
            out += "<span class=\"clip-mark\">&#x21B3; clipped to the layer below</span><br>";
        }
        out += "<span class=\"name\">" + escape(layer.name) + "</span> <span class=\"kind\">" +
               escape(kindText(layer, facts.kind)) + " #" + std::to_string(node.index) + "</span><br>";
        if (facts.text) {
            out += "<span class=\"text\">&ldquo;" + escape(*facts.text) + "&rdquo;</span><br>";
        }
        if (facts.placedFile) {
            const std::string& copy = files_.placedFiles[node.index];
            const std::string label = escape(facts.placedFile->fileName);
            out += "<span class=\"details\">placed file " +
                   (copy.empty() ? label : "<a href=\"" + escape(copy) + "\">" + label + "</a>") +
                   (facts.placedFile->embedded ? " (embedded)" : " (linked)") + "</span><br>";
        }
        out += "<span class=\"details\">";
        out += r.isEmpty() ? std::string("no bounds")
                           : format("bounds (%" PRId64 ", %" PRId64 ")&ndash;(%" PRId64 ", %" PRId64
                                    "), %" PRId64 " &times; %" PRId64 " px",
                                    r.left, r.top, r.right, r.bottom, r.width(), r.height());
        out += format(" &middot; opacity %.0f%%", layer.opacity * 100.0);
        if (layer.fillOpacity != 1.0) {
            out += format(" &middot; fill %.0f%%", layer.fillOpacity * 100.0);
        }
        const std::string key = layer.blendMode.rawValue();
        out += " &middot; blend " + escape(blendModeName(key).value_or("'" + key + "'"));
        if (!layer.visible) {
            out += " &middot; hidden";
        } else if (groupHidden) {
            out += " &middot; in a hidden group";
        }
        if (layer.clipping) {
            out += " &middot; clipped";
        }
        if (layer.hasLayerMask) {
            out += std::string(" &middot; mask") + (layer.maskDisabled ? " (disabled)" : "");
        }
        out += "</span></div></div>\n";
        if (node.isGroup) {
            nodes(node.children, false);
        }
        out += "</li>\n";
    }

    const PSDWrapper& document_;
    const LayerTree& tree_;
    const std::vector<LayerFacts>& facts_;
    const ExportedFiles& files_;
};

} // namespace

std::optional<std::string> blendModeName(const std::string& key)
{
    for (const auto& [code, name] : kBlendModeNames) {
        if (key == code) {
            return name;
        }
    }
    return std::nullopt;
}

std::string htmlIndex(const std::string& title, const PSDWrapper& document, const LayerTree& tree,
                      const std::vector<LayerFacts>& facts, const ExportedFiles& files)
{
    PageWriter page(document, tree, facts, files);
    std::string& out = page.out;
    out += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + escape(title) +
           "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n";
    out += "<h1>" + escape(title) + "</h1>\n<table class=\"facts\">\n";
    out += format("<tr><td>Format</td><td>%s, %" PRId64 "-bit RGB</td></tr>\n",
                  document.bigFile ? "PSB" : "PSD", document.bitDepth);
    out += format("<tr><td>Size</td><td>%" PRId64 " &times; %" PRId64 " px</td></tr>\n", document.imageWidth,
                  document.imageHeight);
    out += format("<tr><td>Resolution</td><td>%g &times; %g ppi%s</td></tr>\n", document.hRes, document.vRes,
                  document.hResUnit == 2 ? " (displayed in pixels/cm)" : "");
    out += "<tr><td>Colour profile</td><td>" + escape(document.colorSpace.name()) + "</td></tr>\n";
    out += format("<tr><td>Layer records</td><td>%zu</td></tr>\n</table>\n", document.layers.size());

    out += "<h2>Composite</h2>\n<div class=\"composite\">";
    if (!files.compositeNote.empty()) {
        out += "<p class=\"note\">Note: " + escape(files.compositeNote) + ".</p>";
    }
    out += files.composite.empty()
               ? std::string("<p>The document has no composite image.</p>")
               : "<a href=\"" + escape(files.composite.file) + "\"><img class=\"checker\" src=\"" +
                     escape(files.composite.file) + "\" alt=\"composite\"></a>";
    if (!files.rendered.empty()) {
        out += "<p>Rendered from the layers:</p><a href=\"" + escape(files.rendered.file) +
               "\"><img class=\"checker\" src=\"" + escape(files.rendered.file) + "\" alt=\"rendered\"></a>";
    }
    out += "</div>\n<h2>Layers (top first)</h2>\n";
    if (tree.roots.empty()) {
        out += "<p>No layers.</p>\n";
    } else {
        page.nodes(tree.roots, true);
    }
    if (!files.alphaChannels.empty()) {
        out += "<h2>Alpha channels</h2>\n<ul class=\"tree root\">\n";
        for (std::size_t i = 0; i < files.alphaChannels.size(); ++i) {
            const auto& channel = (*document.alphaChannels)[i];
            const std::string name = channel->name.value_or("(unnamed)");
            out += "<li><div class=\"layer\">" + thumbnail(files.alphaChannels[i], name) +
                   "<span class=\"name\">" + escape(name) + "</span></div></li>\n";
        }
        out += "</ul>\n";
    }
    out += "</body>\n</html>\n";
    return out;
}

} // namespace psdkit::cli
