#!/bin/sh
# Makes GIF, PCX, TGA, PNM and XBM files for pictures_bench: make_small_pictures.sh PHOTO FOLDER.
# Needs ImageMagick, netpbm, ffmpeg and gifsicle.
set -e
photo=$1
cd "$(mkdir -p "$2" && cd "$2" && pwd)"

# A photo of 4 megapixels with grain, and a screen full of text.
convert "$photo" -resize 2400x1700! -attenuate 0.3 -seed 1 +noise Gaussian -depth 8 photo.ppm
yes 'The quick brown fox jumps over the lazy dog; 0123456789. The quick brown fox jumps over.' |
    head -60 | pbmtext -builtin bdf | pnmtopng > text.png 2> /dev/null
convert -size 1920x1080 xc:'#e8e8ec' -fill '#3060a0' -draw 'rectangle 0,0 1919,40' \
    text.png -geometry +40+60 -composite \( photo.ppm -resize 640x480 \) -geometry +1200+200 \
    -composite -depth 8 screen.ppm
convert photo.ppm -resize 120x80! small.ppm

for name in photo screen small; do
    convert $name.ppm -colors 256 $name.gif
    ppmtopcx -24bit $name.ppm > $name-24.pcx
    pnmquant 256 $name.ppm 2> /dev/null | ppmtopcx -8bit > $name-8.pcx
    pnmquant 16 $name.ppm 2> /dev/null | ppmtopcx > $name-4.pcx
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgr24 -rle 0 $name-24.tga
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgr24 $name-24rle.tga
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgra $name-32rle.tga
    ffmpeg -v error -y -i $name.ppm -pix_fmt bgra -rle 0 $name-32.tga
    ppmtopgm $name.ppm > $name-p5.pgm
    pamditherbw -threshold < $name-p5.pgm | pamtopnm > $name-p4.pbm
    pbmtoxbm -name a $name-p4.pbm > $name.xbm
    pnmtoplainpnm $name-p4.pbm > $name-p1.pbm
    pnmtoplainpnm $name-p5.pgm > $name-p2.pgm
    pnmtoplainpnm $name.ppm > $name-p3.ppm
    mv $name.ppm $name-p6.ppm
done
convert photo-p6.ppm -resize 640x480! +dither -colors 128 frame.gif
for turn in 0 5 10 15 20 25 30 35; do
    convert frame.gif -distort SRT $turn -colors 128 turn$turn.gif
done
gifsicle --delay 5 --no-warnings turn0.gif turn5.gif turn10.gif turn15.gif turn20.gif turn25.gif \
    turn30.gif turn35.gif > animation.gif
rm -f turn*.gif frame.gif text.png
