#!/bin/sh
# Makes a folder of files for pictures_bench and png_bench: make_files.sh PHOTO FOLDER PNG...
# Needs ImageMagick, netpbm, ffmpeg, gifsicle, and the tools of libjpeg-turbo and libtiff. The PNG
# files are saved anew as they are, from any format.
set -e
photo=$1
folder=$2
shift 2
mkdir -p "$folder"
for file in "$@"; do
    convert "$file" -depth 8 "PNG:$folder/$(basename "${file%.*}").png"
done
cd "$folder"

# A photo of 4 megapixels with grain, a screen full of text (widths are multiples of 16), a small
# one, and one of tiles.
convert "$photo" -resize '2400x1600!' -attenuate 0.3 -seed 1 +noise Gaussian -depth 8 photo.ppm
yes 'The quick brown fox jumps over the lazy dog; 0123456789. The quick brown fox jumps over.' |
    head -60 | pbmtext -builtin bdf | pnmtopng >text.png 2>/dev/null
convert -size 1920x1080 xc:'#e8e8ec' -fill '#3060a0' -draw 'rectangle 0,0 1919,40' \
    text.png -geometry +40+60 -composite \( photo.ppm -resize 640x480 \) -geometry +1200+200 \
    -composite -depth 8 screen.ppm
convert photo.ppm -resize '128x96!' small.ppm
convert small.ppm -scale 16x12 -scale 128x96 tiles.ppm

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
    convert $name.ppm -alpha set -channel A -evaluate set 60% -compress none $name-alpha.tif
    convert $name-256.ppm -type palette -compress none $name-palette.tif
    convert $name.ppm -colorspace gray -type grayscale -compress none $name-grey.tif
    for packing in none packbits lzw lzw:2 zip zip:2; do
        tiffcp -r 16 -c $packing $name.tif "$name-$(echo $packing | tr -d :).tif"
    done
    tiffcp -r 16 -c zip $name-alpha.tif $name-alpha-zip.tif
    tiffcp -r 16 -c zip:2 $name-alpha.tif $name-alpha-zip2.tif
    tiffcp -r 16 -c lzw:2 -p separate $name.tif $name-planar.tif
    tiffcp -r 16 -c lzw $name-palette.tif $name-palette-lzw.tif
    convert $name.ppm -monochrome -compress Group4 $name-fax.tif
    rm $name.tif $name-256.ppm $name-16.ppm
done

for name in photo screen small; do
    convert $name.ppm -colors 256 $name.gif
    ppmtopcx -24bit $name.ppm >$name-24.pcx
    pnmquant 256 $name.ppm 2>/dev/null | ppmtopcx -8bit >$name-8.pcx
    pnmquant 16 $name.ppm 2>/dev/null | ppmtopcx >$name-4.pcx
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgr24 -rle 0 $name-24.tga
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgr24 $name-24rle.tga
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgra $name-32rle.tga
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgra -rle 0 $name-32.tga
    ppmtopgm $name.ppm >$name-p5.pgm
    pamditherbw -threshold <$name-p5.pgm | pamtopnm >$name-p4.pbm
    pbmtoxbm -name a $name-p4.pbm >$name.xbm
    pnmtoplainpnm $name-p4.pbm >$name-p1.pbm
    pnmtoplainpnm $name-p5.pgm >$name-p2.pgm
    pnmtoplainpnm $name.ppm >$name-p3.ppm
done

pnmtile 5400 3600 photo-p4.pbm | pbmtoxbm -name a >large.xbm

for quality in 75 95; do
    for sampling in 2x2 2x1 1x1 1x2 4x1; do
        cjpeg -quality $quality -sample $sampling photo.ppm >photo-$sampling-$quality.jpg
    done
    cjpeg -quality $quality -grayscale photo.ppm >photo-grey-$quality.jpg
    cjpeg -quality $quality -restart 4 photo.ppm >photo-restart-$quality.jpg
    cjpeg -quality $quality -progressive photo.ppm >photo-progressive-$quality.jpg
    for name in small tiles; do
        cjpeg -quality $quality $name.ppm >$name-$quality.jpg
    done
done

convert photo.ppm -resize '640x480!' +dither -colors 128 frame.gif
for turn in 0 5 10 15 20 25 30 35; do
    convert frame.gif -distort SRT $turn -colors 128 turn$turn.gif
done
gifsicle --delay 5 --no-warnings turn0.gif turn5.gif turn10.gif turn15.gif turn20.gif turn25.gif \
    turn30.gif turn35.gif >animation.gif
for name in photo screen small; do
    mv $name.ppm $name-p6.ppm
done
rm -f turn*.gif frame.gif text.png tiles.ppm
