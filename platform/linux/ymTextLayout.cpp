// Text measuring on Pango with fontconfig and FreeType. Points are taken as device units
// (72 dots per inch), as the macOS text system counts them.
#include "platform/ymTextLayout.h"

#include <cmath>
#include <limits>
#include <memory>
#include <pango/pangoft2.h>

#include "platform/ymThreadLocal.h"

namespace ymTextLayout {
namespace {

struct GObjectUnref {
    void operator()(gpointer object) const
    {
        if (object)
            g_object_unref(object);
    }
};

PangoFontMap *newFontMap()
{
    PangoFontMap *map = pango_ft2_font_map_new();
    if (map)
        pango_ft2_font_map_set_resolution(PANGO_FT2_FONT_MAP(map), 72.0, 72.0);
    return map;
}

// One font map per thread: Pango's font maps are not to be shared between threads.
struct ThreadFontMap {
    std::unique_ptr<PangoFontMap, GObjectUnref> map{newFontMap()};
};

}  // namespace

double usedHeight(const std::string &text, const std::string &fontDescription, double width)
{
    // A thread that is ending, whose font map is gone, measures with one of its own.
    ThreadFontMap *kept = ymThreadLocalInstance<ThreadFontMap>();
    std::unique_ptr<PangoFontMap, GObjectUnref> ownMap(kept ? nullptr : newFontMap());
    PangoFontMap *fontMap = kept ? kept->map.get() : ownMap.get();
    if (!fontMap)
        return 0.0;
    std::unique_ptr<PangoContext, GObjectUnref> context(pango_font_map_create_context(fontMap));
    if (!context)
        return 0.0;
    std::unique_ptr<PangoLayout, GObjectUnref> layout(pango_layout_new(context.get()));
    if (!layout)
        return 0.0;

    PangoFontDescription *font = pango_font_description_from_string(
        fontDescription.empty() ? "Sans 12" : fontDescription.c_str());
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);

    // A width that is not a positive finite number leaves the text unwrapped.
    if (std::isfinite(width) && width > 0 && width * PANGO_SCALE < std::numeric_limits<int>::max()) {
        pango_layout_set_width(layout.get(), static_cast<int>(width * PANGO_SCALE));
        pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    }
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));

    PangoRectangle logical;
    pango_layout_get_extents(layout.get(), nullptr, &logical);
    return static_cast<double>(logical.height) / PANGO_SCALE;
}

}  // namespace ymTextLayout
