# A desk to try things on: a pen with older software, a signer, files for a bundle. Sourced, never run; the programs are
# on PATH and everything is made in the working folder.

# plug_in_pen ID [SETTING...]
plug_in_pen() {
  tessvik-sim add --id "$1" --type 1 --name "Pen of Ada" --firmware 8.9.14.b1 \
    --penlet guid=settings,name=Settings,version=1.9,build=4,group=System,group-version=1.8 \
    --penlet guid=sketch,name=Sketchpad,version=2.2,build=1,group=Notes,group-version=3.0
  [ $# -eq 1 ] || tessvik-sim set "$@"
}

# make_signer KEY.pem CERT.pem
make_signer() {
  openssl req -x509 -newkey rsa:2048 -nodes -days 30 -subj "/C=SE/O=Pen Works/CN=Bundle Signer" \
    -keyout "$1" -out "$2" 2>/dev/null
}

# pen_file FILE KIND BYTES [KEY VALUE]...: an application or firmware file as a simulated pen takes it.
pen_file() {
  local file=$1 kind=$2 bytes=$3
  shift 3
  mkdir -p "$(dirname "$file")"
  {
    echo "TESSVIK-$kind 1"
    printf '%s: %s\n' "$@"
    echo
    head -c "$bytes" /dev/urandom
  } >"$file"
}

# fill_bundle FOLDER UPDATE.xml: the example's manifest with firmware, three applications and a paper product.
fill_bundle() {
  mkdir "$1" && cp "$2" "$1/update.xml"
  pen_file "$1/System/pen.fw" FIRMWARE 3000000 version 8.9.15.b2
  pen_file "$1/System/settings.app" APP 400000 guid settings name Settings version 2.0.1 build 12 kind app
  pen_file "$1/Notes/writer.app" APP 1500000 guid writer name Writer version 3.1.0 build 7 kind app
  pen_file "$1/Notes/calculator.app" APP 600000 guid calculator name Calculator version 1.4 build 3 kind app
  pen_file "$1/Notes/notebook-a5.paper" APP 200000 guid notebook-a5 name "Notebook A5" version 1.0 kind paper
}
