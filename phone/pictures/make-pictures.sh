#!/usr/bin/env bash
# Draws the two picture sequences of the simulated phones: yard/ (320x240) and gate/ (160x120), 40 pictures each, which
# can be shown round and round. Needs ffmpeg, cjpeg and a font; the pictures are kept in the repository, so this is run
# only to change them.
#
# ffmpeg draws at twice the size (which smooths edges and motion) with a little grain, as a small camera would see it.
# cjpeg writes with the usual tables: the first 607 bytes of all pictures of a sequence are the same.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
readonly here frames=40 quality=62
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

for tool in ffmpeg cjpeg; do
    command -v "$tool" >/dev/null || { echo "make-pictures.sh: $tool is missing" >&2; exit 1; }
done

# pictures NAME WIDTHxHEIGHT RATE GRAPH: runs the filter graph (which ends in [out], at twice the size).
pictures() {
    local name=$1 size=$2 rate=$3 graph=$4
    local caption="drawtext=font=DejaVu Sans Mono:fontsize=h/19:fontcolor=white:box=1:boxcolor=black@0.45"
    caption+=":boxborderw=6:x=h/40:y=h/40:text='$name  %{pts\\:hms}'"
    mkdir -p "$work/$name"
    ffmpeg -hide_banner -loglevel error -filter_complex \
        "$graph;[out]$caption,scale=$size:flags=area,noise=alls=7:allf=t:all_seed=1,format=rgb24" \
        -frames:v "$frames" -r "$rate" "$work/$name/%02d.ppm"
    rm -rf "${here:?}/$name"
    mkdir -p "$here/$name"
    local ppm
    for ppm in "$work/$name"/*.ppm; do
        cjpeg -quality "$quality" -sample 2x2 -baseline -outfile "$here/$name/$(basename "$ppm" .ppm).jpg" "$ppm"
    done
}

# rgb CONDITION RED GREEN BLUE ...: nested conditions for the three channels of geq; the last triple has no condition.
rgb() {
    local channel expression arguments=("$@") count=$# at
    for channel in 1 2 3; do
        expression=${arguments[count - 4 + channel]}
        for ((at = count - 7; at >= 0; at -= 4)); do
            expression="if(${arguments[at]},${arguments[at + channel]},$expression)"
        done
        case $channel in
        1) printf "r='%s'" "$expression" ;;
        2) printf ":g='%s'" "$expression" ;;
        3) printf ":b='%s'" "$expression" ;;
        esac
    done
}

# --- yard: an evening sky, hills, a house with a lit window, a tree in the wind, a van that drives by ---------------
turn="2*PI*N/$frames"
sky=$(rgb \
    "lt(hypot(X-330,Y-150),38)" 255 236 170 \
    "gt(Y,225+28*sin(X/95)+10*sin(X/37))" "74-Y/12" "96-Y/14" "92-Y/20" \
    "70+Y*0.62+90*exp(-hypot(X-330,Y-150)/70)" "120+Y*0.30+60*exp(-hypot(X-330,Y-150)/70)" "196-Y*0.28")
ground=$(rgb \
    "lt(abs(Y-115),3)*lt(mod(X,80),44)" 214 206 170 \
    "between(Y,55,175)" "82+6*sin(X*1.3+Y*2.1)" "84+6*sin(X*1.3+Y*2.1)" "90+6*sin(X*1.3+Y*2.1)" \
    "84+7*sin(X*0.9+3*sin(Y))" "120-Y/12+8*sin(X*0.9+3*sin(Y))" "68+5*sin(X*0.9+3*sin(Y))")
house=$(rgb \
    "between(X,30,90)*between(Y,150,205)*gt(abs(X-60),2)*gt(abs(Y-178),2)" "252-(Y-150)/2" "214-(Y-150)/2" 128 \
    "between(X,140,190)*gt(Y,160)" 92 62 44 \
    "lt(Y,92)" "138+14*sin(X/3)" "72+8*sin(X/3)" "60+8*sin(X/3)" \
    "206+5*sin(Y/2)" "192+5*sin(Y/2)" "168+5*sin(Y/2)")
roof="255*if(lt(Y,92),lt(abs(X-115),30+Y),between(X,12,218))"
leaves="(7*sin(X/5+2*sin(Y/7)+sin($turn))+6*sin(Y/4+2*sin(X/9)))"
tree=$(rgb \
    "gt(Y,150)" 86 62 46 \
    "64+$leaves" "112-Y/5+$leaves" "56+$leaves/2")
sway="6*sin($turn)*(170-Y)/170"
crown="255*if(gt(Y,150),lt(abs(X-80),8),gt(1,pow((X-80-$sway)/66,2)+pow((Y-85)/78,2)+0.09*sin(X/6)*sin(Y/5)))"
wheel="lt(hypot(mod(X-24,92)-20,Y-84),18)*between(X,22,170)"
van=$(rgb \
    "lt(hypot(mod(X-24,92)-20,Y-84),8)" 190 192 196 \
    "$wheel" 30 30 34 \
    "between(X,128,172)*between(Y,18,44)" 164 206 226 \
    "between(Y,52,58)" 240 240 236 \
    "206-Y/3" "70-Y/4" 52)
body="255*gt($wheel+between(X,4,184)*between(Y,8,82)*gt(Y,8+max(0,X-150)*1.15),0)"
pictures yard 320x240 10 "
color=s=640x480:r=10,format=rgb24,geq=$sky,trim=end_frame=1,loop=-1:1[sky];
color=s=640x200:r=10,format=rgb24,geq=$ground,trim=end_frame=1,loop=-1:1[ground];
color=s=230x230:r=10,format=rgba,geq=$house:a='$roof',trim=end_frame=1,loop=-1:1[house];
color=s=160x250:r=10,format=rgba,geq=$tree:a='$crown'[tree];
color=s=190x104:r=10,format=rgba,geq=$van:a='$body',trim=end_frame=1,loop=-1:1[van];
[sky][ground]overlay=y=280[a];[a][house]overlay=x=34:y=96[b];
[b][tree]overlay=x=440:y=82[c];[c][van]overlay=x='-200+n*21':y=318:eval=frame[out]"

# --- gate: a barrier that rises, lets a car through and falls again; a lamp that blinks ------------------------------
lift="1.25*clip(min((N-4)/8,(36-N)/8),0,1)"
along="((X-52)*cos($lift)-(Y-138)*sin($lift))"
across="((X-52)*sin($lift)+(Y-138)*cos($lift))"
boom="lt(abs($across),5)*between($along,0,226)"
lamp="lt(hypot(X-44,Y-96),8)"
scene=$(rgb \
    "between(Y,150,236)*lt(abs(X-300),7)" 88 92 98 \
    "between(Y,196,200)*lt(mod(X+20,64),36)" 208 202 172 \
    "between(Y,158,228)" "96+5*sin(X*1.7+Y*2.3)" "97+5*sin(X*1.7+Y*2.3)" "102+5*sin(X*1.7+Y*2.3)" \
    "gt(Y,150)" "92+14*sin(X)*sin(Y*0.8)" "120+16*sin(X)*sin(Y*0.8)" "78+10*sin(X)*sin(Y*0.8)" \
    "between(Y,92,150)*lt(mod(X,26),5)" 108 116 110 \
    "between(Y,100,106)+between(Y,138,143)" 108 116 110 \
    "gt(Y,118+12*sin(X/44))" 96 126 92 \
    "150+Y*0.55" "186+Y*0.30" "226-Y*0.06")
front=$(rgb \
    "$lamp" "if(lt(mod(N,4),2),255,120)" "if(lt(mod(N,4),2),92,34)" 40 \
    "$boom" "if(lt(mod($along,44),22),214,246)" "if(lt(mod($along,44),22),44,246)" "if(lt(mod($along,44),22),40,240)" \
    "210-abs(X-44)" "178-abs(X-44)" 62)
mask="255*gt($lamp+$boom+between(X,34,56)*between(Y,100,232),0)"
tyre="lt(hypot(mod(X-14,62)-14,Y-48),11)*between(X,14,104)"
car=$(rgb \
    "lt(hypot(mod(X-14,62)-14,Y-48),5)" 196 198 202 \
    "$tyre" 28 28 32 \
    "between(X,38,88)*between(Y,8,22)*gt(abs(X-63),2)" 172 210 228 \
    "gt(X,108)*between(Y,28,34)" 255 240 170 \
    "44" "92-Y/3" "168-Y")
shape="255*gt($tyre+between(X,2,116)*between(Y,24,48)+between(Y,3,24)*between(X,34-(Y-3)*0.7,88+(Y-3)*0.8),0)"
pictures gate 160x120 5 "
color=s=320x240:r=5,format=rgb24,geq=$scene,trim=end_frame=1,loop=-1:1[scene];
color=s=120x62:r=5,format=rgba,geq=$car:a='$shape',trim=end_frame=1,loop=-1:1[car];
color=s=320x240:r=5,format=rgba,geq=$front:a='$mask'[front];
[scene][car]overlay=x='-130+clip(n-10,0,22)*21.5':y=156:eval=frame[a];[a][front]overlay[out]"

du -bc "$here/yard" "$here/gate" | tail -1
