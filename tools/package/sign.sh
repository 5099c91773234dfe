# Signing of the package's image. Sourced by ./package.

test_certificate_name="Tarvenholt Myrtelhaven test signing"

# Makes the key and the certificate of test machines in a folder that only its owner can read. They are used again, so
# that a test machine trusts one certificate for all packages of this build folder, until 30 days before they expire.
test_certificate() { # folder
    local folder=$1 work
    if [ -f "$folder/key.pem" ] &&
        openssl x509 -in "$folder/certificate.pem" -noout -checkend 2592000 >/dev/null 2>&1; then
        return
    fi
    (
        umask 077
        mkdir -p "$folder"
        work=$(mktemp -d "$folder/new.XXXXXX")
        trap 'rm -rf "$work"' EXIT
        openssl req -x509 -newkey rsa:3072 -sha256 -nodes -days 1825 -subj "/O=Tarvenholt/CN=$test_certificate_name" \
            -addext basicConstraints=critical,CA:FALSE -addext keyUsage=critical,digitalSignature \
            -addext extendedKeyUsage=codeSigning -keyout "$work/key.pem" -out "$work/certificate.pem" 2>"$work/log" ||
            { cat "$work/log" >&2; exit 1; }
        mv "$work/key.pem" "$work/certificate.pem" "$folder/"
    )
}

# Signs an image with SHA-256 and page hashes; further arguments name certificate and key.
sign_image() { # unsigned, signed, options of osslsigncode…
    local unsigned=$1 signed=$2 said
    shift 2
    if ! said=$(osslsigncode sign -h sha256 -ph -n "Tarvenholt Myrtelhaven" "$@" -in "$unsigned" -out "$signed" 2>&1) ||
        [ ! -s "$signed" ]; then
        echo "$said" >&2
        return 1
    fi
    # Windows refuses signatures by certificates for other purposes; better to learn it here.
    said=$(osslsigncode extract-signature -pem -in "$signed" -out "$signed.pem" >/dev/null &&
        openssl pkcs7 -in "$signed.pem" -print_certs -text)
    rm -f "$signed.pem"
    if ! grep -q "Code Signing" <<<"$said"; then
        echo "The certificate is not for signing code (extended key usage)." >&2
        return 1
    fi
}
