"""Reads one document with psd-tools the way the benchmark compares it: every layer's pixels as a
PIL image, then the composite image. Usage: /usr/bin/python3 bench/read-psdtools.py FILE"""
import sys

from psd_tools import PSDImage

psd = PSDImage.open(sys.argv[1])
images = 0
for layer in psd.descendants():
    if layer.topil() is not None:
        images += 1
if psd.topil() is not None:
    images += 1
sys.exit(0 if images else 1)
