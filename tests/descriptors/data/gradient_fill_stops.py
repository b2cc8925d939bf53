#!/usr/bin/python3
"""Writes gradient-fill-stops.txt: the stops of every gradient fill ("GdFl") layer of the corpus, as
psd-tools (Debian python3-psd-tools) reads them, for the gradient conversion tests of
DescriptorConversionTest.cpp.

One line per gradient fill:  <file> <record index> C <n> (<Lctn> <Mdpn> <colour>)*n
                             O <m> (<Lctn> <Mdpn> <Opct>)*m
where <colour> is "RGBC <Rd> <Grn> <Bl>", "Grsc <Gry>" or the class ID of another colour model.
Record indices count the layer records in file order (section dividers included), in the 16/32-bit
layer block where the file keeps its layers there. Doubles are written with repr (round-trip exact).

Usage: gradient_fill_stops.py <corpus folder> > gradient-fill-stops.txt
"""
import glob
import os
import sys
import warnings

from psd_tools.constants import Tag
from psd_tools.psd import PSD


def layer_records(psd):
    info = psd.layer_and_mask_information
    for tag in (Tag.LAYER_16, Tag.LAYER_32):
        if info.tagged_blocks is not None and tag in info.tagged_blocks:
            return info.tagged_blocks.get_data(tag).layer_records
    if info.layer_info is None or info.layer_info.layer_records is None:
        return []
    return info.layer_info.layer_records


def main(folder):
    warnings.simplefilter("ignore")
    for path in sorted(glob.glob(os.path.join(folder, "*.ps[db]"))):
        try:
            with open(path, "rb") as f:
                psd = PSD.read(f)
        except Exception:  # files psd-tools cannot open have no facts here
            continue
        for index, record in enumerate(layer_records(psd)):
            blocks = record.tagged_blocks
            if blocks is None or Tag.GRADIENT_FILL_SETTING not in blocks:
                continue
            gradient = blocks.get_data(Tag.GRADIENT_FILL_SETTING)[b"Grad"]
            fields = [os.path.basename(path), str(index), "C", str(len(gradient[b"Clrs"]))]
            for stop in gradient[b"Clrs"]:
                color = stop[b"Clr "]
                fields += [str(int(stop[b"Lctn"])), str(int(stop[b"Mdpn"])), color.classID.decode("ascii")]
                if color.classID == b"RGBC":
                    fields += [repr(float(color[key])) for key in (b"Rd  ", b"Grn ", b"Bl  ")]
                elif color.classID == b"Grsc":
                    fields += [repr(float(color[b"Gry "]))]
            fields += ["O", str(len(gradient[b"Trns"]))]
            for stop in gradient[b"Trns"]:
                fields += [str(int(stop[b"Lctn"])), str(int(stop[b"Mdpn"])), repr(float(stop[b"Opct"].value))]
            print(" ".join(fields))


if __name__ == "__main__":
    main(sys.argv[1])
