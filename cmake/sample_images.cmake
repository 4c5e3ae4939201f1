# Writes the sample configuration images of the three FPGAs into OUT_DIR: dem.bin, dec.bin and
# rs.bin. Each is a line of text naming the device, followed by bytes from a fixed
# pseudo-random sequence; no byte is zero, so the whole file is the image the virtual board
# sees (it drops trailing zero bytes) and its CRC-32 is that of the file. The sizes are not
# multiples of four, so every load ends with a partial word.
#   cmake -DOUT_DIR=dir -P sample_images.cmake
if(NOT OUT_DIR)
  message(FATAL_ERROR "OUT_DIR not set")
endif()
file(MAKE_DIRECTORY "${OUT_DIR}")

function(write_image name size start)
  set(text "torvixe sample configuration image: ${name}\n")
  string(LENGTH "${text}" length)
  set(x ${start})
  while(length LESS size)
    # A linear congruential sequence; bytes 1 to 255.
    math(EXPR x "(${x} * 1103515245 + 12345) % 2147483648")
    math(EXPR byte "(${x} / 65536) % 255 + 1")
    string(ASCII ${byte} c)
    string(APPEND text "${c}")
    math(EXPR length "${length} + 1")
  endwhile()
  file(WRITE "${OUT_DIR}/${name}.bin.tmp" "${text}")
  file(RENAME "${OUT_DIR}/${name}.bin.tmp" "${OUT_DIR}/${name}.bin")
endfunction()

write_image(dem 6143 1)
write_image(dec 4097 2)
write_image(rs 2050 3)
