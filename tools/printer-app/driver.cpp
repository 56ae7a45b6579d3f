#include "driver.hpp"

#include <cstring>
#include <string>

#include "job_callbacks.hpp"
#include "pdf_filter.hpp"
#include "printer_status.hpp"

namespace orvante::app {

namespace {

pappl_pr_driver_t driverList[] = {
    {"orvante_203dpi", "Orvante label printer, 203 dpi", "MFG:Orvante;MDL:Label 203;CMD:LABEL;",
     nullptr},
    {"orvante_300dpi", "Orvante label printer, 300 dpi", "MFG:Orvante;MDL:Label 300;CMD:LABEL;",
     nullptr},
};

// Common label sizes, inch and metric, then the range of custom sizes.
const char* const kMedia[] = {
    "oe_4x6-label_4x6in",     "oe_4x4-label_4x4in",
    "oe_4x3-label_4x3in",     "oe_4x2-label_4x2in",
    "oe_4x1-label_4x1in",     "oe_3x2-label_3x2in",
    "oe_3x1-label_3x1in",     "oe_2-25x1-25-label_2.25x1.25in",
    "oe_2x1-label_2x1in",     "oe_1-5x1-label_1.5x1in",
    "om_100x150mm_100x150mm", "om_100x100mm_100x100mm",
    "om_100x50mm_100x50mm",   "om_60x40mm_60x40mm",
    "om_58x40mm_58x40mm",     "om_50x30mm_50x30mm",
    "om_40x30mm_40x30mm",     "om_30x20mm_30x20mm",
};

const char* const kDitherChoices[] = {"threshold", "floyd-steinberg", "atkinson", "ordered"};

void fillMedia(pappl_media_col_t& media, const char* name, pappl_media_tracking_t tracking) {
  const pwg_media_t* size = pwgMediaForPWG(name);
  std::memset(&media, 0, sizeof media);
  std::strncpy(media.size_name, name, sizeof media.size_name - 1);
  if (size != nullptr) {
    media.size_width = size->width;
    media.size_length = size->length;
  }
  std::strncpy(media.source, "main-roll", sizeof media.source - 1);
  std::strncpy(media.type, "labels", sizeof media.type - 1);
  media.tracking = tracking;
}

}  // namespace

pappl_pr_driver_t* drivers() {
  return driverList;
}
int driverCount() {
  return static_cast<int>(sizeof driverList / sizeof driverList[0]);
}

bool driverCallback(pappl_system_t* system, const char* driverName, const char* /*deviceUri*/,
                    const char* /*deviceId*/, pappl_pr_driver_data_t* data, ipp_t** attributes,
                    void* /*context*/) {
  int dpi = 0;
  if (std::strcmp(driverName, "orvante_203dpi") == 0) dpi = 203;
  if (std::strcmp(driverName, "orvante_300dpi") == 0) dpi = 300;
  if (dpi == 0) {
    papplLog(system, PAPPL_LOGLEVEL_ERROR, "No driver named '%s'.", driverName);
    return false;
  }

  data->printfile_cb = printRawFile;
  data->rstartjob_cb = startJob;
  data->rstartpage_cb = startPage;
  data->rwriteline_cb = writeLine;
  data->rendpage_cb = endPage;
  data->rendjob_cb = endJob;
  data->status_cb = updateStatus;
  data->delete_cb = forgetPrinter;
  data->format = kLabelFormat;

  std::snprintf(data->make_and_model, sizeof data->make_and_model, "Orvante label printer %d dpi",
                dpi);
  data->ppm = 60;
  data->kind = PAPPL_KIND_LABEL;
  data->orient_default = IPP_ORIENT_PORTRAIT;
  // Grey lines come in, and the page's dithering makes the dots; bi-level
  // pages are thresholded by PAPPL with the matrix below.
  data->color_supported = static_cast<pappl_color_mode_t>(
      PAPPL_COLOR_MODE_AUTO | PAPPL_COLOR_MODE_MONOCHROME | PAPPL_COLOR_MODE_BI_LEVEL);
  data->color_default = PAPPL_COLOR_MODE_MONOCHROME;
  data->raster_types =
      PAPPL_PWG_RASTER_TYPE_BLACK_1 | PAPPL_PWG_RASTER_TYPE_SGRAY_8 | PAPPL_PWG_RASTER_TYPE_SRGB_8;
  std::memset(data->gdither, 127, sizeof data->gdither);
  std::memset(data->pdither, 127, sizeof data->pdither);
  data->content_default = PAPPL_CONTENT_AUTO;
  data->quality_default = IPP_QUALITY_NORMAL;
  data->scaling_default = PAPPL_SCALING_AUTO;
  data->sides_supported = PAPPL_SIDES_ONE_SIDED;
  data->sides_default = PAPPL_SIDES_ONE_SIDED;

  data->num_resolution = 1;
  data->x_resolution[0] = data->y_resolution[0] = dpi;
  data->x_default = data->y_default = dpi;

  // Labels print edge to edge.
  data->left_right = 0;
  data->bottom_top = 0;
  data->borderless = true;

  data->num_media = 0;
  for (const char* name : kMedia) data->media[data->num_media++] = name;
  // Custom sizes up to the print head's width and a metre long.
  data->media[data->num_media++] = "custom_min_10x10mm";
  data->media[data->num_media++] = dpi == 203 ? "custom_max_108x1000mm" : "custom_max_106x1000mm";

  data->num_source = 1;
  data->source[0] = "main-roll";
  data->num_type = 2;
  data->type[0] = "labels";
  data->type[1] = "continuous";
  data->tracking_supported = static_cast<pappl_media_tracking_t>(
      PAPPL_MEDIA_TRACKING_GAP | PAPPL_MEDIA_TRACKING_MARK | PAPPL_MEDIA_TRACKING_CONTINUOUS);
  fillMedia(data->media_default, "oe_4x6-label_4x6in", PAPPL_MEDIA_TRACKING_GAP);
  data->media_ready[0] = data->media_default;

  // The density command takes 0 to 15: sixteen steps of darkness.
  data->darkness_supported = 16;
  data->darkness_configured = 53;  // density 8
  data->darkness_default = 0;
  data->speed_supported[0] = kMinSpeedIps * 2540;
  data->speed_supported[1] = kMaxSpeedIps * 2540;
  data->speed_default = 4 * 2540;

  data->num_vendor = 1;
  data->vendor[0] = kDitherOption;
  const std::string supported = std::string(kDitherOption) + "-supported";
  const std::string defaultName = std::string(kDitherOption) + "-default";
  if (*attributes == nullptr) *attributes = ippNew();
  ippAddStrings(*attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, supported.c_str(),
                static_cast<int>(sizeof kDitherChoices / sizeof kDitherChoices[0]), nullptr,
                kDitherChoices);
  ippAddString(*attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, defaultName.c_str(), nullptr,
               kDitherChoices[0]);
  return true;
}

}  // namespace orvante::app
