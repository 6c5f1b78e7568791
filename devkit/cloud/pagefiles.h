#ifndef PELCLOUD_DEVKIT_CLOUD_PAGEFILES_H
#define PELCLOUD_DEVKIT_CLOUD_PAGEFILES_H

#include <string_view>

namespace localcloud {

// The files of page/, embedded by the build.
extern const std::string_view APPROVE_HTML;
extern const std::string_view INDEX_HTML;
extern const std::string_view PAGE_JS;
extern const std::string_view STYLE_CSS;

} // namespace localcloud

#endif
