#include "Commands.hpp"

namespace psdkit::cli {

namespace {

constexpr Command kCommands[] = {
    {"info", "FILE [--json] [--verbose]",
     "Shows the document at a glance: size, depth, PSD or PSB, resolution (in ppi), colour profile,\n"
     "the layer tree (top first, groups indented) with each layer's kind (pixel, text, smart object,\n"
     "shape, fill, adjustment, group, artboard), name, text or placed file, bounds, opacity, fill\n"
     "opacity, blend mode, visibility, clipping, mask and the kept blocks that matter (effects,\n"
     "vector data), the alpha channels and the kept image resources. A file that cannot be read is\n"
     "described by its header (format, colour mode, depth, size, channels) and exits with 2.\n\n"
     "  --json     the same as JSON: one entry per layer record in file order (bottom first)\n"
     "  --verbose  list every kept block\n",
     runInfo},
    {"export", "FILE DIR [--threads N]",
     "Writes the composite, every layer's content and mask, and every alpha channel as PNG files into\n"
     "DIR (created when missing), the files placed in smart objects, small thumbnails, and\n"
     "index.html, a page showing the layer tree with a thumbnail, kind, name, bounds, opacity, blend\n"
     "mode and clipping per layer. The composite of a document with transparency is freed of the\n"
     "white it is stored against. 8-bit documents give 8-bit PNGs, 16-bit give 16-bit; 32-bit\n"
     "samples are clipped to 0..1 and written as 16-bit (a note says so). Every PNG carries the\n"
     "document's ICC profile when it has one. DIR must be empty, new, or hold a previous export,\n"
     "which is replaced. On failure the files written so far are removed again. Images are decoded\n"
     "and encoded on --threads N threads (default: one per hardware thread); the files are the same.\n",
     runExport},
    {"create", "OUT --size WxH [--depth 8|16|32] [--psb] LAYER ...",
     "Builds a document from PNG files and writes it to OUT. LAYERs are given bottom first:\n\n"
     "  file.png[:name][@x,y][#opacity][!hidden]\n"
     "      a layer from a PNG; name defaults to the file name without .png, x,y (default 0,0) is\n"
     "      the top-left corner on the canvas, opacity is a percentage 0-100 (default 100)\n"
     "  [group:Name[#opacity][!hidden]   ...   ]\n"
     "      a group holding the layers between the two markers (quote the arguments, since [ and !\n"
     "      mean something to the shell)\n\n"
     "The composite is the library's rendering of the layers. PNGs are converted to the\n"
     "document's depth (default 8; 32-bit samples are the PNG's values scaled to 0..1).\n",
     runCreate},
    {"render", "FILE OUT.png [--scale F] [--region X,Y,W,H]",
     "Renders the document's layers (blend modes, masks, clipping, groups, fill and adjustment\n"
     "layers; not layer effects) into a PNG with the document's ICC profile. --region renders part\n"
     "of the canvas (document pixels); --scale (above 0, at most 16) resizes the result, averaging\n"
     "the pixels each output pixel covers. 32-bit samples are clipped to 0..1 and written as 16-bit.\n",
     runRender},
    {"rewrite", "IN OUT [--psb|--psd] [--strict] [--render]",
     "Reads IN and writes it back to OUT with its own composite, as PSB or PSD by the option, else by\n"
     "OUT's extension (.psb or .psd), else as IN was. Every tagged block the library does not\n"
     "interpret (text, smart objects, vector masks, ...) is kept and written back; --strict reads\n"
     "by the plain rules, which drop them. --render writes a fresh rendering of the layers as the\n"
     "composite instead of passing the stored one through.\n",
     runRewrite},
    {"descriptors", "FILE [--layer N]",
     "Prints every kept block that holds a descriptor (fill and adjustment settings, effects,\n"
     "artboards, and image resources made of one descriptor) as JSON: class, name, and every item\n"
     "with its type and value. --layer N limits the output to the layer record N (file order).\n",
     runDescriptors},
    {"check", "FILE... [--roundtrip [--strict]]",
     "Reads each file and prints OK or the error. With --roundtrip the document is also written and\n"
     "read back in memory, keeping every tagged block as rewrite does, and every field, layer, kept\n"
     "block or pixel that changed is reported. With --strict the round trip follows the plain\n"
     "reading rules, and the blocks it drops are listed per key. The exit status is 0 only when\n"
     "every file passed.\n",
     runCheck},
};

} // namespace

std::span<const Command> commands()
{
    return kCommands;
}

} // namespace psdkit::cli
