// PDF documents through Poppler.

#include <gio/gio.h>
#include <poppler.h>

#include <memory>
#include <mutex>

#include "page_drawing.hpp"

namespace orvante {

// Poppler does not draw two pages of one document at once, so every use of
// the document is serialised here.
struct PdfDocument::Impl {
  explicit Impl(PopplerDocument* opened) : document(opened) {}
  ~Impl() { g_object_unref(document); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  std::mutex mutex;
  PopplerDocument* document;
};

namespace pdf {

struct Access {
  static PdfDocument::Impl* impl(const PdfDocument& document) { return document.impl_.get(); }
  static PdfDocument make(PopplerDocument* opened) {
    PdfDocument document;
    if (opened) document.impl_ = std::make_shared<PdfDocument::Impl>(opened);
    return document;
  }
};

namespace {

struct PageReleaser {
  void operator()(PopplerPage* page) const { g_object_unref(page); }
};
using Page = std::unique_ptr<PopplerPage, PageReleaser>;

// The page with that number, counted from 1; none outside the document.
template <class F>
auto withPage(const PdfDocument& document, int pageNumber, F&& use) {
  auto* impl = Access::impl(document);
  std::unique_lock<std::mutex> lock;
  Page page;
  if (impl) {
    lock = std::unique_lock(impl->mutex);
    if (pageNumber >= 1 && pageNumber <= poppler_document_get_n_pages(impl->document)) {
      page.reset(poppler_document_get_page(impl->document, pageNumber - 1));
    }
  }
  return use(page.get());
}

}  // namespace

std::optional<Size> pageSize(const PdfDocument& document, int pageNumber) {
  return withPage(document, pageNumber, [](PopplerPage* page) -> std::optional<Size> {
    if (!page) return std::nullopt;
    Size size;
    poppler_page_get_size(page, &size.width, &size.height);
    return size;
  });
}

void drawPage(const PdfDocument& document, int pageNumber, cairo_t* context) {
  withPage(document, pageNumber, [&](PopplerPage* page) {
    if (page) poppler_page_render_for_printing_with_options(page, context, POPPLER_PRINT_DOCUMENT);
  });
}

}  // namespace pdf

PdfDocument PdfDocument::open(const std::string& path) {
  GFile* file = g_file_new_for_path(path.c_str());
  GError* error = nullptr;
  PopplerDocument* opened = poppler_document_new_from_gfile(file, nullptr, nullptr, &error);
  g_object_unref(file);
  g_clear_error(&error);
  return pdf::Access::make(opened);
}

PdfDocument PdfDocument::fromData(ByteView bytes) {
  GBytes* copy = g_bytes_new(bytes.data(), bytes.size());
  GError* error = nullptr;
  PopplerDocument* opened = poppler_document_new_from_bytes(copy, nullptr, &error);
  g_bytes_unref(copy);
  g_clear_error(&error);
  return pdf::Access::make(opened);
}

std::optional<Size> PdfDocument::pageSize(int page) const {
  return pdf::pageSize(*this, page);
}

int PdfDocument::pageCount() const {
  Impl* impl = pdf::Access::impl(*this);
  if (!impl) return 0;
  std::lock_guard lock(impl->mutex);
  return poppler_document_get_n_pages(impl->document);
}

}  // namespace orvante
