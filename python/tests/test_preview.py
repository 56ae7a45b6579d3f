"""Previews: the labels a Label or a printer's bytes print, as PNGs of the
label's size in dots, with ink where the elements are."""

import pytest

import orvante
from pictures import ink, png_dots


def test_preview_sizes_and_ink():
    label = (orvante.Label(dpi=203).size(50, 30).gap(2).clear()
             .text(20, 20, "3", "Hello")
             .barcode(20, 80, "128", "ABC-123", height=60)
             .print())
    pngs = orvante.preview(label)
    assert len(pngs) == 1
    width, height, rows = png_dots(pngs[0])
    assert (width, height) == (400, 240)  # 50 x 30 mm at 8 dots a mm
    assert ink(rows, 20, 20, 120, 60) > 50, "the text"
    assert ink(rows, 20, 80, 300, 140) > 1000, "the bars"
    assert ink(rows, 0, 0, 20, 240) == 0 and ink(rows, 0, 200, 400, 240) == 0, "blank margins"
    # The notebook's picture is the first label.
    assert label._repr_png_() == pngs[0]


def test_preview_of_bytes_at_both_resolutions_and_every_copy():
    at_300 = bytes(orvante.Label(dpi=300).size(20, 10).clear().print(1, 3))
    pngs = orvante.preview(at_300, dpi=300)
    assert len(pngs) == 3
    assert png_dots(pngs[0])[:2] == (240, 120)  # 12 dots a mm
    # A Label previews at its own resolution unless told, bytes at 203 dpi.
    assert png_dots(orvante.preview(orvante.Label(dpi=300).size(20, 10).print())[0])[:2] == (240, 120)
    assert png_dots(orvante.preview(at_300)[0])[:2] == (160, 80)
    with pytest.raises(ValueError, match="203 or 300"):
        orvante.preview(at_300, dpi=600)


def test_nothing_printed_previews_nothing():
    unprinted = orvante.Label().size(20, 10).text(0, 0, "3", "x")
    assert orvante.preview(unprinted) == []
    assert unprinted._repr_png_() is None
    # An image packet cut short prints nothing rather than failing.
    cut = bytes(orvante.Label().size(20, 10).image(
        0, 0, orvante.Image(memoryview(bytes(64 * 8)).cast("B", (8, 64)))).print())[:40]
    assert orvante.preview(cut) == []

