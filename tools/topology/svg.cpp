#include "tools/topology/svg.h"

#include <memory>
#include <stdexcept>

#include <graphviz/gvc.h>

#ifdef __SANITIZE_ADDRESS__
/// What the graph's library and the fonts' keep for the life of the process.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libgvc\nleak:libcgraph\nleak:libgvplugin\nleak:libpango\nleak:libfontconfig\nleak:libglib";
}
#endif

namespace topology {

namespace {

std::string rendered(const std::string &graph, const char *format)
{
    const std::unique_ptr<GVC_t, int (*)(GVC_t *)> context(gvContext(), gvFreeContext);
    const std::unique_ptr<Agraph_t, int (*)(Agraph_t *)> tree(agmemread(graph.c_str()), agclose);
    if (!context || !tree || gvLayout(context.get(), tree.get(), "dot") != 0)
        throw std::runtime_error("Graphviz cannot lay the picture out");
    char *text = nullptr;
    unsigned length = 0;
    const int result = gvRenderData(context.get(), tree.get(), format, &text, &length);
    const std::string picture = result == 0 && text ? std::string(text, length) : "";
    gvFreeRenderData(text);
    gvFreeLayout(context.get(), tree.get());
    if (picture.empty())
        throw std::runtime_error("Graphviz cannot draw the picture: are its plugins installed?");
    return picture;
}

} // namespace

std::string svg_of(const picture_t &picture)
{
    std::string drawn = rendered(graph_of(picture), "svg");
    if (const size_t at = drawn.find("<g id=\"graph0\""); at != std::string::npos)
        drawn.insert(at, dark_style());
    return drawn;
}

std::string layout_of(const std::string &graph) { return rendered(graph, "json0"); }

} // namespace topology
