"""Label, Image and PdfDocument: the same bytes as the C++ door for the same
calls, pixels through the buffer protocol, and refusals as ValueError."""

import copy

import pytest

import orvante
from pictures import HEIGHT, WIDTH, ramps_rgb, small_pdf

DITHERS = ["threshold", "floyd-steinberg", "atkinson", "ordered", "ordered8", "edge"]


def commands_label():
    return (orvante.Label(dpi=203).size(50, 30).gap(2, 1).black_mark(3, 0.5).speed(4)
            .density(8).clear()
            .text(20, 20, "3", 'He said "hi"', rotation=90, x_multiplier=2, y_multiplier=3)
            .text(20, 60, "TSS24.BF2", "收件人", encoding="big5")
            .barcode(20, 80, "128", "ABC-123", 60, readable=False, narrow=3, wide=3)
            .tear_off(False)
            .form_feed()
            .raw("SET CUTTER OFF")
            .download("A.TXT", b"hello\0world")
            .print(2, 3))


def images_label(picture):
    label = orvante.Label()
    for index, dither in enumerate(DITHERS):
        label.image(index * 64, 0, picture, dither=dither, threshold=100)
    return label.bitmap(0, 50, picture, dither="atkinson")


def shapes_label():
    part = orvante.Label().box(0, 0, 60, 40, thickness=2).circle(10, 5, 30)
    return (orvante.Label().size(50, 30).clear()
            .text_block(10, 10, 200, 90, "2", 'Words wrapped in a "block"', rotation=90,
                        x_multiplier=2, line_spacing=4, alignment="center")
            .qr(220, 10, "https://example.com/p/1", error_correction="H", cell=6, rotation=90)
            .qr(300, 120, "plain")
            .bar(0, 200, 300, 2)
            .box(5, 5, 395, 235, thickness=3, radius=10)
            .reverse(10, 10, 50, 20)
            .erase(60, 10, 20, 20)
            .circle(300, 100, 80, thickness=2)
            .add(part)
            .add(part))


def test_label_bytes_equal_the_cpp_door(reference, tmp_path):
    assert bytes(commands_label()) == reference("commands")
    assert bytes(shapes_label()) == reference("shapes")

    pixels = memoryview(ramps_rgb()).cast("B", (HEIGHT, WIDTH, 3))
    assert bytes(images_label(orvante.Image(pixels))) == reference("images")

    pdf = tmp_path / "page.pdf"
    pdf.write_bytes(small_pdf())
    drawn = (orvante.Label(dpi=300)
             .rendered_text(10, 10, "DejaVu Sans", 32, "Grüße 123", bold=True, rotation=90)
             .pdf_page(0, 300, orvante.PdfDocument.open(pdf), 1, dither="floyd-steinberg"))
    assert bytes(drawn) == reference("drawn", str(pdf))


def test_pixels_from_numpy_arrays_in_any_layout(reference):
    numpy = pytest.importorskip("numpy")
    rgb = numpy.frombuffer(ramps_rgb(), numpy.uint8).reshape(HEIGHT, WIDTH, 3)
    expected = reference("images")
    # Label.image takes the array where an Image is asked.
    assert bytes(images_label(rgb)) == expected
    # Strided views read as the pixels they show: a transposed copy turned back,
    # and opaque RGBA.
    turned = numpy.ascontiguousarray(rgb.transpose(1, 0, 2)).transpose(1, 0, 2)
    assert not turned.flags.c_contiguous
    assert bytes(images_label(turned)) == expected
    rgba = numpy.dstack([rgb, numpy.full((HEIGHT, WIDTH), 255, numpy.uint8)])
    assert orvante.Image(rgba).rgba == orvante.Image(rgb).rgba


def test_pixels_of_every_channel_count():
    grey = orvante.Image(memoryview(bytes([0, 128, 255, 64])).cast("B", (2, 2)))
    assert (grey.width, grey.height) == (2, 2)
    assert grey.rgba[:8] == bytes([0, 0, 0, 255, 128, 128, 128, 255])
    # Alpha as arrays hold it, premultiplied for the library.
    grey_alpha = orvante.Image(memoryview(bytes([200, 128])).cast("B", (1, 1, 2)))
    assert grey_alpha.rgba == bytes([100, 100, 100, 128])
    rgba = orvante.Image(memoryview(bytes([255, 0, 100, 0])).cast("B", (1, 1, 4)))
    assert rgba.rgba == bytes([0, 0, 0, 0])

    for shape in [(4,), (1, 1, 5), (2, 2, 1, 1)]:
        size = 1
        for side in shape:
            size *= side
        with pytest.raises(ValueError):
            orvante.Image(memoryview(bytes(size)).cast("B", shape))
    with pytest.raises(ValueError, match="uint8"):
        orvante.Image(memoryview(bytes(8)).cast("H", (2, 2)))
    with pytest.raises(TypeError, match="orvante.Image or pixels"):
        orvante.Label().image(0, 0, "logo.png")


def test_copies_are_independent_and_builders_chain():
    label = orvante.Label().size(50, 30)
    assert label.clear() is label
    copied = copy.copy(label).print()
    assert bytes(copied) == bytes(label) + b"PRINT 1,1\r\n"
    assert label.dpi == 203 and orvante.Label(dpi=300).dpi == 300
    # A label added to itself adds what it held before.
    assert bytes(label.add(label)) == bytes(copied)[:-len(b"PRINT 1,1\r\n")] * 2


@pytest.mark.parametrize("build, reason", [
    (lambda l: l.text(0, 0, "3", "line\r\nPRINT 99"), "carriage return"),
    (lambda l: l.text(0, 0, "3", "tab\there"), "tab"),
    (lambda l: l.text(0, 0, "3", "nul\0byte"), ""),
    (lambda l: l.text(0, 0, "3", "runs ~!T"), "~!"),
    (lambda l: l.barcode(0, 0, "128", "A\nB", 50), "line feed"),
    (lambda l: l.text(0, 0, '3", 0, 1, 1, "X', "text"), "font"),
    (lambda l: l.download("../etc/passwd", b"x"), "name"),
    (lambda l: l.barcode(0, 0, "QR", "x", 50), "barcode type"),
    (lambda l: l.text(-1, 0, "3", "x"), "off the label"),
    (lambda l: l.size(50, 30).text(390, 0, "3", "x").image(390, 0, orvante.Image(
        memoryview(bytes(400)).cast("B", (20, 20)))), "does not fit"),
    (lambda l: l.density(16), "density"),
    (lambda l: l.print(0), "sets and copies"),
    (lambda l: l.text(0, 0, "3", "x", rotation=45), "rotation"),
    (lambda l: l.text(0, 0, "3", "x", encoding="latin-9"), "encoding"),
    (lambda l: l.image(0, 0, orvante.Image(memoryview(bytes(4)).cast("B", (2, 2))),
                       dither="diffuse"), "dither"),
    (lambda l: l.rendered_text(0, 0, "DejaVu Sans", 0, "x"), "size"),
    (lambda l: l.image(0, 0, b"not pixels of a shape"), "shape"),
    (lambda l: l.text_block(0, 0, 100, 50, "3", "two\nlines"), "line feed"),
    (lambda l: l.text_block(0, 0, 100, 50, "3", "x", alignment="justify"), "alignment"),
    (lambda l: l.qr(0, 0, "data ~!T"), "~!"),
    (lambda l: l.qr(0, 0, "x", error_correction="X"), "error correction"),
    (lambda l: l.qr(0, 0, "x", error_correction="MH"), "one letter"),
    (lambda l: l.box(50, 50, 10, 10), "box ends"),
    (lambda l: l.size(50, 30).circle(380, 0, 40), "does not fit"),
    (lambda l: l.add(orvante.Label(dpi=300).bar(0, 0, 5, 5)), "dpi"),
])
def test_hostile_text_and_bad_arguments_are_value_errors(build, reason):
    label = orvante.Label()
    before = bytes(label)
    with pytest.raises(ValueError, match=reason):
        build(label)
    if "fit" not in reason:
        assert bytes(label) == before, "a refused element adds nothing"


def test_quotes_print_as_given():
    label = orvante.Label().text(0, 0, "3", 'a "quoted" word')
    assert b'\\["]quoted\\["]' in bytes(label)


def test_files_that_are_missing_or_not_images(tmp_path):
    with pytest.raises(FileNotFoundError):
        orvante.Image.from_file(tmp_path / "missing.png")
    with pytest.raises(FileNotFoundError):
        orvante.PdfDocument.open(tmp_path / "missing.pdf")
    garbage = tmp_path / "garbage"
    garbage.write_bytes(b"%PDF-1.4 this is no document")
    with pytest.raises(ValueError):
        orvante.Image.from_file(garbage)
    with pytest.raises(ValueError):
        orvante.PdfDocument.open(garbage)
    with pytest.raises(ValueError):
        orvante.Image.from_bytes(b"\x89PNG\r\n\x1a\n truncated")


def test_documents_and_encoded_images_from_bytes():
    document = orvante.PdfDocument.from_bytes(small_pdf())
    assert document.page_count == 1
    assert document.page_size(1) == (144.0, 72.0) and document.page_size(2) is None
    page = document.draw_page(1, 200, 100)
    assert (page.width, page.height) == (200, 100)
    # A preview's PNG decodes as an image of the label's size.
    png = orvante.preview(orvante.Label().size(10, 5).clear().print())[0]
    decoded = orvante.Image.from_bytes(png)
    assert (decoded.width, decoded.height) == (80, 40)
    assert decoded.scaled(40, 20).width == 40
