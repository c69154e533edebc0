# Applied to what scdoc writes: hyphenation off after .TH (which turns it
# back on), and no line break after a hyphen, so that names such as
# kem-vision-ocr are never split across lines.
/^\.TH /a\
.nh\
.cflags 0 -\\(hy\\(em
