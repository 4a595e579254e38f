#!/bin/sh
# Makes BMP, ILBM and TIFF files for pictures_bench from a photo: make_bitmaps.sh PHOTO FOLDER.
# Needs ImageMagick, netpbm, ffmpeg and libtiff's tools.
set -e
photo=$1
cd "$(mkdir -p "$2" && cd "$2" && pwd)"

# A photo of 4 megapixels with grain, and a screen full of text; widths are multiples of 16.
convert "$photo" -resize '2400x1600!' -attenuate 0.3 -seed 1 +noise Gaussian -depth 8 photo.ppm
yes 'The quick brown fox jumps over the lazy dog; 0123456789. The quick brown fox jumps over.' |
    head -60 | pbmtext -builtin bdf | pnmtopng > text.png 2> /dev/null
convert -size 1920x1080 xc:'#e8e8ec' -fill '#3060a0' -draw 'rectangle 0,0 1919,40' \
    text.png -geometry +40+60 -composite \( photo.ppm -resize 640x480 \) -geometry +1200+200 \
    -composite -depth 8 screen.ppm

for name in photo screen; do
    convert $name.ppm +dither -colors 256 $name-256.ppm
    convert $name.ppm +dither -colors 16 $name-16.ppm
    convert $name-256.ppm -type palette -compress None BMP3:$name-8.bmp
    convert $name-256.ppm -type palette -compress RLE BMP3:$name-rle8.bmp
    convert $name-16.ppm -type palette -compress None BMP3:$name-4.bmp
    convert $name.ppm -monochrome BMP3:$name-1.bmp
    ffmpeg -v error -y -i $name.ppm -pix_fmt rgb555le $name-16.bmp
    ffmpeg -v error -y -i $name.ppm -pix_fmt rgb565le $name-565.bmp
    convert $name.ppm -type truecolor BMP3:$name-24.bmp
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgra $name-32.bmp
    ppmtoilbm -quiet -fixplanes 4 $name-16.ppm >$name-4.iff
    ppmtoilbm -quiet -fixplanes 8 $name-256.ppm >$name-8.iff
    ppmtoilbm -quiet -24force $name.ppm >$name-24.iff
    ppmtoilbm -quiet -24force -nocompress $name.ppm >$name-24-plain.iff
    ppmtoilbm -quiet -ham6 $name.ppm >$name-ham6.iff
    convert $name.ppm -compress none $name.tif
    convert $name-256.ppm -type palette -compress none $name-palette.tif
    convert $name.ppm -colorspace gray -type grayscale -compress none $name-grey.tif
    for packing in none packbits lzw lzw:2 zip:2; do
        tiffcp -r 16 -c $packing $name.tif "$name-$(echo $packing | tr -d :).tif"
    done
    tiffcp -r 16 -c lzw:2 -p separate $name.tif $name-planar.tif
    tiffcp -r 16 -c lzw $name-palette.tif $name-palette-lzw.tif
    rm $name.tif
done
rm photo*.ppm screen*.ppm text.png
