#!/usr/bin/env bash
# Renders the sandbox ad creatives in media/ from the SVG sources in src/.
#
# A maintainer script, not part of the build: the PNG and MP4 files it writes are committed,
# and the build embeds whatever media/ holds. Run it after editing a source:
#
#   sandbox/assets/make_creatives.sh            # everything
#   sandbox/assets/make_creatives.sh card_2     # one creative (or "video")
#
# Every creative pulls the product drawings and brand marks from src/products.svg (through
# XInclude) and the palette and type from src/palette.css. Sizes are fixed: the catalogue
# and the tests know them. The video is rendered frame by frame from src/video.svg, a
# template whose @NAME@ placeholders this script fills in for each frame.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
src="$here/src"
media="$here/media"

# name:width:height for every still.
stills=(
  banner_320x50:320:50
  rect_300x250:300:250
  card_1:300:250
  card_2:300:250
  card_3:300:250
  interstitial_320x480:320:480
  product_1:160:160
  product_2:160:160
  product_3:160:160
  product_4:160:160
  product_5:160:160
  product_6:160:160
)

# The video keeps the shape the player tests know: 3.0 s, 15 frames/s, 320x180, no audio,
# H.264 constrained baseline in MP4.
video_fps=15
video_frames=45

need() {
  local missing=()
  command -v rsvg-convert >/dev/null || missing+=(librsvg2-bin)
  command -v pngquant >/dev/null || missing+=(pngquant)
  command -v optipng >/dev/null || missing+=(optipng)
  command -v ffmpeg >/dev/null || missing+=(ffmpeg)
  [[ $(fc-list : family) == *"Inter Display"* ]] || missing+=(fonts-inter)
  if ((${#missing[@]})); then
    echo "installing ${missing[*]}"
    local sudo=""
    [[ $(id -u) -eq 0 ]] || sudo=sudo
    $sudo apt-get update -q
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
  fi
}

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Renders src/NAME.svg to media/NAME.png at WIDTHxHEIGHT, then shrinks the file: a
# 256-colour palette (dithered, so the gradients stay smooth) and a lossless recompression.
render_still() {
  local name=$1 width=$2 height=$3
  local out="$media/$name.png"
  rsvg-convert --width "$width" --height "$height" --background-color none \
    "$src/$name.svg" -o "$work/$name.png"
  pngquant --force --speed 1 --quality 85-100 --strip --output "$work/$name.q.png" \
    "$work/$name.png" || cp "$work/$name.png" "$work/$name.q.png"
  optipng -quiet -o5 -strip all "$work/$name.q.png"
  mv "$work/$name.q.png" "$out"
  printf '%-24s %4sx%-4s %6s bytes\n' "$name.png" "$width" "$height" "$(stat -c %s "$out")"
}

# ease-out cubic of t clamped to [0, 1], to N decimals.
ease() { awk -v t="$1" 'BEGIN { if (t < 0) t = 0; if (t > 1) t = 1; u = 1 - t; printf "%.4f", 1 - u*u*u }'; }
# a + (b - a) * e
mix() { awk -v a="$1" -v b="$2" -v e="$3" 'BEGIN { printf "%.2f", a + (b - a) * e }'; }

render_video() {
  local frames="$work/frames"
  mkdir -p "$frames"
  # The template's XInclude and stylesheet paths are relative, so frames are written next
  # to it (hidden names, removed on exit) rather than into the temporary directory.
  local i
  for ((i = 0; i < video_frames; i++)); do
    local s  # seconds into the spot
    s=$(awk -v i="$i" -v f="$video_fps" 'BEGIN { printf "%.4f", i / f }')
    # 0.0-1.0 s: the jacket slides in from the right, the headline firms up (it is already
    # faintly there on the first frame, which players show before they start).
    local e_in e_head e_offer e_price e_cta e_zoom
    e_in=$(ease "$(awk -v s="$s" 'BEGIN { print s / 0.7 }')")
    e_head=$(ease "$(awk -v s="$s" 'BEGIN { print (s - 0.1) / 0.5 }')")
    # 1.0-2.0 s: the offer badge pops, the price slides in under the headline.
    e_offer=$(awk -v s="$s" 'BEGIN { t = (s - 1.0) / 0.35; if (t < 0) t = 0; if (t > 1) t = 1;
      # back-out: overshoots a little, then settles
      c = 1.9; u = t - 1; v = 1 + (c + 1) * u*u*u + c * u*u
      # a zero scale makes a singular matrix: start from a speck instead
      printf "%.4f", (v < 0.001 ? 0.001 : v) }')
    e_price=$(ease "$(awk -v s="$s" 'BEGIN { print (s - 1.2) / 0.5 }')")
    # 2.0-3.0 s: the call to action rises in; the whole time the jacket slowly grows.
    e_cta=$(ease "$(awk -v s="$s" 'BEGIN { print (s - 2.0) / 0.45 }')")
    e_zoom=$(awk -v s="$s" 'BEGIN { printf "%.4f", s / 3 }')
    local rain_y
    rain_y=$(((i * 12) % 36))
    sed -e "s/@JACKET_X@/$(mix 320 228 "$e_in")/g" \
      -e "s/@JACKET_SCALE@/$(mix 1.0 1.04 "$e_zoom")/g" \
      -e "s/@HEAD_OPACITY@/$(mix 0.35 1 "$e_head")/g" \
      -e "s/@HEAD_Y@/$(mix 8 0 "$e_head")/g" \
      -e "s/@OFFER_SCALE@/$e_offer/g" \
      -e "s/@PRICE_OPACITY@/$e_price/g" \
      -e "s/@PRICE_X@/$(mix -16 0 "$e_price")/g" \
      -e "s/@CTA_OPACITY@/$e_cta/g" \
      -e "s/@CTA_Y@/$(mix 30 0 "$e_cta")/g" \
      -e "s/@RAIN_Y@/$rain_y/g" \
      "$src/video.svg" >"$src/.frame.svg"
    rsvg-convert --width 320 --height 180 "$src/.frame.svg" \
      -o "$(printf '%s/%03d.png' "$frames" "$i")"
  done
  rm -f "$src/.frame.svg"
  ffmpeg -loglevel error -y -framerate "$video_fps" -i "$frames/%03d.png" \
    -frames:v "$video_frames" -an \
    -c:v libx264 -profile:v baseline -level 2.1 -pix_fmt yuv420p -preset veryslow -crf 20 \
    -x264-params keyint="$video_fps" -movflags +faststart \
    "$work/video.mp4"
  mv "$work/video.mp4" "$media/video_320x180.mp4"
  printf '%-24s %4sx%-4s %6s bytes\n' video_320x180.mp4 320 180 \
    "$(stat -c %s "$media/video_320x180.mp4")"
}

need
trap 'rm -rf "$work" "$src/.frame.svg"' EXIT

only=${1:-}
for entry in "${stills[@]}"; do
  IFS=: read -r name width height <<<"$entry"
  [[ -z $only || $only == "$name" ]] || continue
  render_still "$name" "$width" "$height"
done
[[ -n $only && $only != video ]] || render_video
