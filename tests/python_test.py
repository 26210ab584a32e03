"""examples/python/kffax.py: what it decodes and encodes, and what it says to wrong arguments and damaged data.

usage: python_test.py, with the module's directory in PYTHONPATH and the filter in KFFAX_LIBRARY
"""
import concurrent.futures
import pathlib
import struct
import subprocess
import tempfile
import unittest

import numpy as np

import kffax
from kffax import FaxError, Format

WIDTHS = (1, 7, 8, 9, 64, 1728, 2561, 65535)


def pictures(width, height=30):
    """White, black, the most changes there can be, noise, and blocks as letters have."""
    random = np.random.default_rng(width)
    x, y = np.arange(width), np.arange(height)[:, None]
    yield np.zeros((height, width), bool)
    yield np.ones((height, width), bool)
    yield (x + y) % 2 == 1
    yield random.random((height, width)) < 0.3
    yield (x // 7 + y // 5) % 3 == 0


def one_strip(tiff):
    """The only strip of a TIFF file, of tags that have one value each."""
    order = "<" if tiff[:2] == b"II" else ">"
    (at,) = struct.unpack_from(order + "I", tiff, 4)
    (count,) = struct.unpack_from(order + "H", tiff, at)
    tags = {}
    for entry in range(at + 2, at + 2 + 12 * count, 12):
        tag, kind = struct.unpack_from(order + "HH", tiff, entry)
        (tags[tag],) = struct.unpack_from(order + ("H" if kind == 3 else "I"), tiff, entry + 8)
    return tiff[tags[273] : tags[273] + tags[279]], tags.get(266, 1) == 2


class RoundTrips(unittest.TestCase):
    def test_every_format_width_and_bit_order(self):
        for format in Format:
            for width in WIDTHS:
                for number, page in enumerate(pictures(width)):
                    for reverse in (False, True):
                        with self.subTest(format=format, width=width, number=number, reverse=reverse):
                            data = kffax.encode(page, format, reverse_bits=reverse)
                            back = kffax.decode(data, width, len(page), format, reverse_bits=reverse)
                            self.assertEqual(back.dtype, bool)
                            np.testing.assert_array_equal(back, page)

    def test_packed_rows(self):
        for width in (9, 16, 1728):
            page = list(pictures(width))[3]
            packed = np.packbits(page, axis=1)
            data = kffax.encode(packed, width=width)
            self.assertEqual(data, kffax.encode(page))
            np.testing.assert_array_equal(kffax.decode(data, width, len(page), packed=True), packed)
            unused = (0xFF >> 1 + (width - 1) % 8) & 0xFF
            packed[:, -1] |= unused
            self.assertEqual(kffax.encode(packed, width=width), data)

    def test_arrays_in_any_order_and_data_of_any_kind(self):
        page = list(pictures(1728))[4]
        for rows in (page[::-1], page[:, ::-1], page[::3, 5::7], page.T, np.asfortranarray(page)):
            data = kffax.encode(rows)
            self.assertEqual(data, kffax.encode(rows.copy("C")))
            height, width = rows.shape
            for source in (bytearray(data), memoryview(data), np.frombuffer(data, np.uint8)):
                np.testing.assert_array_equal(kffax.decode(source, width, height), rows)
            self.assertEqual(data, kffax.encode(rows))  # nothing wrote to it
        packed = np.packbits(page, axis=1)
        data = kffax.encode(packed[::2], width=1728)
        self.assertEqual(data, kffax.encode(page[::2]))
        self.assertEqual(kffax.encode(page.tolist()), kffax.encode(page))

    def test_threads(self):
        pages = [page for width in WIDTHS for page in pictures(width)]

        def there_and_back(page):
            return (kffax.decode(kffax.encode(page), page.shape[1], len(page)) == page).all()

        with concurrent.futures.ThreadPoolExecutor(8) as threads:
            self.assertTrue(all(threads.map(there_and_back, pages)))


class Libtiff(unittest.TestCase):
    CODINGS = {Format.G4: ("g4", "-4"), Format.G3_1D: ("g3:1d", "-1"), Format.G3_2D: ("g3:2d", "-2")}

    def test_streams_of_either(self):
        page = list(pictures(1728, 200))[3]
        rows = np.packbits(page, axis=1).tobytes()
        with tempfile.TemporaryDirectory() as scratch:
            plain, theirs, ours, pages = (pathlib.Path(scratch, name) for name in "abcd")
            with open(plain, "w+b") as file:
                pbm = b"P4\n1728 200\n" + rows
                subprocess.run(["pnmtotiff", "-quiet", "-miniswhite"], input=pbm, stdout=file, check=True)
            for format, (tiffcp, fax2tiff) in self.CODINGS.items():
                for order in ("msb2lsb", "lsb2msb"):
                    with self.subTest(format=format, order=order):
                        options = ["-r", "200", "-c", tiffcp, "-f", order]
                        subprocess.run(["tiffcp", *options, plain, theirs], check=True)
                        strip, reverse = one_strip(theirs.read_bytes())
                        self.assertEqual(reverse, order == "lsb2msb")
                        decoded = kffax.decode(strip, 1728, 200, format, reverse_bits=reverse)
                        np.testing.assert_array_equal(decoded, page)
                ours.write_bytes(kffax.encode(page, format))
                subprocess.run(["fax2tiff", "-M", fax2tiff, "-o", pages, ours], check=True)
                text = subprocess.run(["tifftopnm", "-quiet", pages], capture_output=True, check=True).stdout
                # fax2tiff may take the end of the stream for one more line.
                self.assertEqual(text.split(b"\n", 2)[2][: len(rows)], rows, format)


class Refusals(unittest.TestCase):
    def test_decode(self):
        odd = np.zeros(16, np.uint8)[::2]
        for wrong, arguments in (
            (TypeError, (None, 8, 8)),
            (TypeError, ("text", 8, 8)),
            (TypeError, (7, 8, 8)),
            (TypeError, (odd, 8, 8)),
            (TypeError, (b"x", None, 8)),
            (TypeError, (b"x", 8.0, 8)),
            (TypeError, (b"x", 8, "8")),
            (ValueError, (b"x", 0, 8)),
            (ValueError, (b"x", 8, 0)),
            (ValueError, (b"x", -8, 8)),
            (ValueError, (b"x", 8, -8)),
            (ValueError, (b"x", 2**32 + 8, 1)),
            (ValueError, (b"x", 8, 2**64 + 8)),
            (ValueError, (b"x", 1728, 2**31 - 1)),
            (ValueError, (b"x", 8, 8, 121)),
            (ValueError, (b"x", 8, 8, None)),
            (ValueError, (b"x", 8, 8, "g4")),
            (ValueError, (np.zeros(2**32, np.uint8), 8, 8)),  # never touched, so no memory is used
        ):
            with self.subTest(arguments=arguments[1:]), self.assertRaises(wrong):
                kffax.decode(*arguments)

    def test_encode(self):
        page = np.zeros((4, 20), bool)
        packed = np.zeros((4, 3), np.uint8)
        for wrong, rows, more in (
            (TypeError, None, {}),
            (TypeError, b"bytes", {}),
            (TypeError, object(), {}),
            (TypeError, page[0], {}),
            (TypeError, page[None], {}),
            (TypeError, packed, {}),
            (TypeError, page.astype(float), {}),
            (TypeError, page.astype(object), {}),
            (TypeError, page, {"width": 20}),
            (TypeError, packed.astype(np.uint16), {"width": 20}),
            (TypeError, packed, {"width": 20.0}),
            (ValueError, packed, {"width": 0}),
            (ValueError, packed, {"width": 16}),
            (ValueError, packed, {"width": 25}),
            (ValueError, packed, {"width": 2**32 + 20}),
            (ValueError, page[:0], {}),
            (ValueError, page[:, :0], {}),
            (ValueError, page, {"format": 121}),
            (ValueError, np.broadcast_to(np.False_, (2**31, 60000)), {}),
            (ValueError, np.broadcast_to(np.False_, (1, 2**33)), {}),
        ):
            with self.subTest(kind=type(rows), more=more), self.assertRaises(wrong):
                kffax.encode(rows, **more)

    def test_what_the_filter_refuses(self):
        for call in (
            lambda: kffax.decode(b"\x00", 65536, 1),
            lambda: kffax.encode(np.zeros((1, 65536), bool)),
        ):
            with self.assertRaisesRegex(FaxError, "65535") as raised:
                call()
            self.assertEqual(raised.exception.status, -12)


class Damage(unittest.TestCase):
    def test_lines_above_are_whole_and_those_below_white(self):
        page = list(pictures(1728))[4]
        for format in Format:
            data = kffax.encode(page, format)
            back = kffax.decode(data[: len(data) // 2], 1728, len(page), format)
            whole = (back == page).all(axis=1)
            self.assertTrue(whole[:10].all(), format)
            self.assertFalse(back[-5:].any(), format)
        self.assertFalse(kffax.decode(b"", 1728, 3).any())

    def test_any_bytes_at_any_width(self):
        random = np.random.default_rng(20)
        for format in Format:
            whole = kffax.encode(list(pictures(1728))[4], format)
            for width in WIDTHS:
                for data in (random.bytes(3000), whole, whole[5:], b"\x00" * 999, b"\xff" * 999):
                    self.assertEqual(kffax.decode(data, width, 50, format).shape, (50, width))


if __name__ == "__main__":
    unittest.main()
