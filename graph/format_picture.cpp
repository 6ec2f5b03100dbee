// Pictures, drawn by Graphviz.
#include "qvlineagegraph/formats.h"

#include <dlfcn.h>
#include <graphviz/gvc.h>

#include <array>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>

namespace qvlineagegraph {

namespace {

// A part of Graphviz, which lies in a folder beside its library. It stays loaded.
void* loadPart(const std::string& name) {
  Dl_info library{};
  if (dladdr(reinterpret_cast<void*>(&gvContextPlugins), &library) == 0)
    return nullptr;
  std::error_code error;
  const auto path = std::filesystem::canonical(library.dli_fname, error);
  if (error)
    return nullptr;
  const auto folder = path.parent_path() / "graphviz";
  void* part = dlopen((folder / ("lib" + name + ".so.6")).c_str(), RTLD_NOW | RTLD_LOCAL);
  return part ? dlsym(part, (name + "_LTX_library").c_str()) : nullptr;
}

struct FreeContext {
  void operator()(GVC_t* context) const { gvFreeContext(context); }
};
using Context = std::unique_ptr<GVC_t, FreeContext>;

// A vector picture is drawn without the part that measures text in the fonts of this machine: Graphviz has the widths of
// the letters of a few fonts with it, and so a graph gives one picture everywhere.
Context makeContext(PictureFormat format) {
  static const std::array<void*, 3> parts{loadPart("gvplugin_core"), loadPart("gvplugin_dot_layout"),
                                          loadPart("gvplugin_pango")};
  if (!parts[0] || !parts[1] || (format == PictureFormat::Png && !parts[2]))
    return nullptr;
  const lt_symlist_t vector[] = {{"gvplugin_core_LTX_library", parts[0]},
                                 {"gvplugin_dot_layout_LTX_library", parts[1]},
                                 {nullptr, nullptr}};
  const lt_symlist_t pixels[] = {{"gvplugin_core_LTX_library", parts[0]},
                                 {"gvplugin_dot_layout_LTX_library", parts[1]},
                                 {"gvplugin_pango_LTX_library", parts[2]},
                                 {nullptr, nullptr}};
  return Context(gvContextPlugins(format == PictureFormat::Svg ? vector : pixels, 0));
}

// Keeps what Graphviz has to say, in place of the handler that the host may have, for as long as it lives. One at a time.
class Complaints {
public:
  explicit Complaints(std::string& text) : m_former(agseterrf(keep)) { s_text = &text; }
  ~Complaints() { agseterrf(m_former); }
  Complaints(const Complaints&) = delete;
  Complaints& operator=(const Complaints&) = delete;

private:
  // Its caller is in C and lets no exception pass.
  static int keep(char* text) {
    try {
      *s_text += text;
    } catch (const std::bad_alloc&) {
      return 1;
    }
    return 0;
  }

  static inline std::string* s_text = nullptr;
  agusererrf m_former;
};

class Drawing {
public:
  Drawing(GVC_t* context, const std::string& dot) : m_context(context), m_graph(agmemread(dot.c_str())) {
    m_laidOut = m_graph && gvLayout(m_context, m_graph, "dot") == 0;
  }
  ~Drawing() {
    if (m_laidOut)
      gvFreeLayout(m_context, m_graph);
    if (m_graph)
      agclose(m_graph);
  }
  Drawing(const Drawing&) = delete;
  Drawing& operator=(const Drawing&) = delete;

  // Empty where it cannot be drawn.
  std::string render(PictureFormat format) const {
    char* bytes = nullptr;
    unsigned size = 0;
    if (!m_laidOut ||
        gvRenderData(m_context, m_graph, format == PictureFormat::Svg ? "svg" : "png", &bytes, &size) != 0 ||
        !bytes)
      return {};
    std::string picture(bytes, size);
    gvFreeRenderData(bytes);
    return picture;
  }

private:
  GVC_t* m_context;
  Agraph_t* m_graph;
  bool m_laidOut = false;
};

struct Drawn {
  std::string picture; // empty where it cannot be drawn
  std::string complaint;
};

Drawn draw(const std::string& dot, PictureFormat format) {
  static std::mutex one; // Graphviz is for one thread at a time
  const std::lock_guard lock(one);
  Drawn drawn;
  const Complaints complaints(drawn.complaint);
  if (const Context context = makeContext(format))
    drawn.picture = Drawing(context.get(), dot).render(format);
  return drawn;
}

// The picture without what stands before its element: the version that drew it, and a document type.
std::string withPlainProlog(const std::string& svg) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + svg.substr(svg.find("<svg"));
}

} // namespace

Result<void> writePicture(const View& view, PictureFormat format, std::string& out) {
  if (view.nodes().size() > mostNodesInAPicture)
    return Error{ErrorKind::Refused, "a picture of " + std::to_string(view.nodes().size()) +
                                         " nodes would be beyond reading; " +
                                         std::to_string(mostNodesInAPicture) + " are the most"};
  std::string dot;
  writeDot(view, dot);
  const auto [picture, complaint] = draw(dot, format);
  if (picture.empty())
    return Error{ErrorKind::Refused,
                 "Graphviz cannot draw the picture" + (complaint.empty() ? "" : ": " + complaint)};
  out += format == PictureFormat::Svg ? withPlainProlog(picture) : picture;
  return {};
}

} // namespace qvlineagegraph
