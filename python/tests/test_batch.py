"""Template, records and Batch: a template filled from a dict gives the C++
door's bytes, errors name the element, key and record, and a batch prints
every label to the virtual printer with its journal."""

import json
import threading
import time

import pytest

import orvante

TEMPLATE = {
    "size": [50, 30], "gap": 2, "copies": 1,
    "defaults": {"city": "Berlin"},
    "elements": [
        {"type": "text", "x": 20, "y": 20, "font": "3", "text": "${name}"},
        {"type": "block", "x": 20, "y": 60, "width": 200, "height": 60, "font": "2",
         "text": "${city}: ${qty} at ${price:%.2f}, fragile ${fragile}"},
        {"type": "qr", "x": 260, "y": 20, "cell": 4, "data": "https://example.com/p/${sku}"},
        {"type": "box", "x": 5, "y": 5, "x2": 395, "y2": 235, "thickness": 2},
        {"type": "text", "x": 20, "y": 200, "font": "2", "text": "No. ${n:%04d}"},
    ],
}


@pytest.fixture
def template_file(tmp_path):
    path = tmp_path / "label.json"
    path.write_text(json.dumps(TEMPLATE))
    return path


def test_a_filled_template_gives_the_cpp_bytes(template_file, reference, tmp_path):
    template = orvante.Template.from_file(template_file)
    assert template.fields == ["name", "city", "qty", "price", "fragile", "sku"]
    assert template.dpi == 203
    record = {"name": 'Wang "Li"', "qty": 3, "price": 2.5, "fragile": True, "sku": "SKU-1",
              "zip": None}
    expected = reference("filled", str(template_file), "7", 'name=Wang "Li"', "qty=3",
                         "price=2.5", "fragile=true", "sku=SKU-1")
    assert bytes(template.fill(record, n=7)) == expected
    same = orvante.Template.from_json(TEMPLATE, base=tmp_path)
    assert same.fingerprint == template.fingerprint
    assert bytes(same.fill(record, n=7)) == expected

    # The same record read from CSV and from JSON lines, numbered by its place.
    (tmp_path / "orders.csv").write_text(
        'name,qty,price,fragile,sku\nAnna,1,1,false,A\n"Wang ""Li""",3,2.5,true,SKU-1\n')
    (tmp_path / "orders.jsonl").write_text(
        '{"name": "Anna", "sku": "A"}\n\n' + json.dumps(record) + "\n")
    for name in ["orders.csv", "orders.jsonl"]:
        records = orvante.read_records(tmp_path / name)
        assert [r.number for r in records] == [1, 2]
        assert records[1].line == 3 and records[1]["name"] == 'Wang "Li"'
        assert "zip" not in records[1] and records[1].get("zip", "-") == "-"
        assert dict(records[1]) == {"name": 'Wang "Li"', "qty": "3", "price": "2.5",
                                    "fragile": "true", "sku": "SKU-1"}
        assert bytes(template.fill(records[1], n=7)) == expected
        assert b"No. 0002" in bytes(template.fill(records[1]))
    assert template.copies({"copies": 4}) == 4 and template.copies(records[0]) == 1


def test_errors_name_the_element_key_and_record(template_file, tmp_path):
    off = dict(TEMPLATE, elements=[{"type": "text", "x": 20, "y": 20, "font": "3", "text": "a"},
                                   {"type": "text", "x": 900, "y": 0, "font": "3", "text": "b"}])
    with pytest.raises(orvante.TemplateError, match=r"^elements\[1\]\.x: .*outside") as bad:
        orvante.Template.from_json(json.dumps(off))
    assert isinstance(bad.value, ValueError) and (bad.value.element, bad.value.key) == (1, "x")
    with pytest.raises(orvante.TemplateError, match="not JSON"):
        orvante.Template.from_json("{")
    with pytest.raises(FileNotFoundError):
        orvante.Template.from_file(tmp_path / "missing.json")

    template = orvante.Template.from_file(template_file)
    full = {"name": "A", "qty": 1, "price": 1, "fragile": False, "sku": "S"}
    with pytest.raises(orvante.RecordError,
                       match=r'^record 4: elements\[2\]\.data: .*"sku"') as missing:
        template.fill(dict(full, sku=None), n=4)
    assert (missing.value.number, missing.value.line) == (4, 0)
    with pytest.raises(orvante.RecordError, match=r"elements\[0\]\.text: .*line feed"):
        template.fill(dict(full, name="A\nPRINT 99"))
    with pytest.raises(TypeError, match='"qty" is a list'):
        template.fill(dict(full, qty=[1]))

    # A batch refuses its first bad record by number and line, or skips the bad ones.
    (tmp_path / "orders.csv").write_text(
        "name,qty,price,fragile,sku\nA,1,1,true,S\nB,2,x,true,S\nC,3,3,true,S\n")
    records = orvante.read_records(tmp_path / "orders.csv")
    with pytest.raises(orvante.RecordError, match=r"^line 3: elements\[1\]\.text") as refused:
        orvante.Batch(template, records)
    assert (refused.value.number, refused.value.line) == (2, 3)
    batch = orvante.Batch(template, records, skip_bad=True)
    assert batch.numbers == [1, 3] and [s.number for s in batch.skipped] == [2]
    assert orvante.Batch(template, records, from_=3).numbers == [3]
    with pytest.raises(ValueError, match="5 to 3 is empty"):
        orvante.Batch(template, records, from_=5)
    (tmp_path / "broken.csv").write_text('name\n"open quote\n')
    with pytest.raises(ValueError, match=r"broken.csv line 2"):
        orvante.read_records(tmp_path / "broken.csv")


def records(count):
    return [{"name": f"Name {i}", "qty": i, "price": i / 4, "fragile": i % 2 == 0,
             "sku": f"SKU-{i}"} for i in range(1, count + 1)]


def test_a_batch_prints_every_label_and_resumes_from_its_journal(template_file, vprinter,
                                                                 tmp_path):
    template = orvante.Template.from_file(template_file)
    journal = tmp_path / "orders.journal"
    batch = orvante.Batch(template, records(4))
    expected = [png for n in batch.numbers for png in orvante.preview(batch.label(n))]

    # The callback's exception after the second label stops the batch and is raised.
    seen = []

    def stop_after_two(progress):
        seen.append((progress.done, progress.total))
        if progress.done == 2:
            raise KeyError("enough")
    with pytest.raises(KeyError, match="enough"):
        batch.print(vprinter.uri, journal=journal, on_progress=stop_after_two)
    assert seen == [(0, 4), (1, 4), (2, 4)]
    with pytest.raises(orvante.Error, match="resume=True goes on"):
        orvante.Batch(template, records(4)).print(vprinter.uri, journal=journal)

    # A new batch of the same records goes on from the first unconfirmed one.
    progress = []
    result = orvante.Batch(template, records(4)).print(
        vprinter.uri, journal=journal, resume=True, on_progress=progress.append)
    assert (result.printed, result.done, result.total, result.maybe_twice) == (2, 4, 4, [])
    assert [p.done for p in progress] == [2, 3, 4] and progress[-1].waiting == ""
    assert vprinter.labels(4) == expected
    with pytest.raises(orvante.Error, match="nothing to resume"):
        orvante.Batch(template, records(4)).print(vprinter.uri, journal=journal, resume=True)


def test_a_batch_waits_for_the_printer_without_the_gil(template_file, simulated):
    # The printer takes no bytes until another Python thread lets it: with
    # the GIL held, print() would stall until the send timed out and fail.
    simulated.set_takes_bytes(False)
    threading.Timer(0.3, simulated.set_takes_bytes, args=(True,)).start()
    started = time.monotonic()
    result = orvante.run_batch(template_file, records(2), simulated.uri, confirm_timeout=2.0,
                               wait=3.0)
    assert result.done == 2 and time.monotonic() - started >= 0.25
    assert simulated.received().count(b"PRINT 1,1") == 2
