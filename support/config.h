#ifndef PELCLOUD_SUPPORT_CONFIG_H
#define PELCLOUD_SUPPORT_CONFIG_H

#include <string>

/**
 * The suite's installation directory and symbolic file names. Nothing is cached, because the suite
 * may be reinstalled while the process runs. No errors are reported. Any thread may call both
 * functions.
 */

/**
 * The installation directory, with a "/" at its end: the key PATH in the section PELORIN of
 * /etc/pelorin.conf or, without that, the directory of the running program. Empty when neither is
 * known.
 */
[[nodiscard]] std::string GetPelorinPath();

/**
 * Expands the suite's symbolic file names. A macro such as "//LOGEVTFILE//" becomes a file in the
 * directory of a UPS or in the installation directory. A leading "//BASEDIR//" or
 * "//UPSCONFIGDIR//" becomes the installation directory or that of the UPS. Any other name is
 * returned unchanged.
 *
 * `base` is the number of a UPS, whose directory is below the installation directory, or else that
 * directory itself, used as given: it should end in "/". The result is empty if `name` or `base` is
 * null.
 */
[[nodiscard]] std::string ParseMacroFileName(const char *name, const char *base);

/**
 * Overrides the result of GetPelorinPath(), for a program with an option for that; an empty path
 * ends that. No other thread may call these functions meanwhile.
 */
void SetPelorinPath(const std::string &path);

namespace Internal {

/** GetPelorinPath() with `configFile` in place of /etc/pelorin.conf. For tests. */
[[nodiscard]] std::string PelorinPathFrom(const char *configFile);

} // namespace Internal

#endif
