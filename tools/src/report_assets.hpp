// Files inlined into every report, embedded in the program at build time.
#pragma once

#include <string_view>

namespace keloecg::assets {

extern const std::string_view template_html;
extern const std::string_view report_css;
extern const std::string_view report_js;
extern const std::string_view uplot_js;
extern const std::string_view uplot_css;
extern const std::string_view uplot_license;

}  // namespace keloecg::assets
