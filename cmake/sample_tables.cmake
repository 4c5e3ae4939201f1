# Writes the demodulator's sample files into OUT_DIR, so that the tests, the CLI and the demo
# load filters and packing tables without anything from outside:
#   filters/<shape>_<D>.dat   for each of the 22 filter shapes and D = 2, 4, 8, 16, 32: 2T
#                             numbers as text, one a line, T = 8D. The first T are a windowed
#                             sinc low-pass (symmetric, a cut-off that differs a little from
#                             shape to shape); the last T are the same negated, so a loader
#                             that takes the wrong half is caught. All lie strictly between -1
#                             and 1.
#   tables/<name>             every packing table a signal type names: bytes 1 to 255 (no zero,
#                             which string(ASCII) cannot make), 256 to 316 of them, a multiple of
#                             4; each file a different stretch of one fixed byte sequence.
#   dmpx/table.bin            a demultiplexer data table: 3001 bytes from 1 to 255 of a
#                             pseudo-random sequence (an odd length, so a loader that works in
#                             words rather than bytes shows).
# Only integer arithmetic, so the files are the same on every host.
#   cmake -DOUT_DIR=dir -P sample_tables.cmake
# Included with TVX_SAMPLE_TABLES_NAMES_ONLY set, it only defines the lists of file names
# (TVX_SAMPLE_FILTER_FILES, TVX_SAMPLE_TABLE_FILES, relative to OUT_DIR; the demultiplexer's
# table is among the latter) and returns.

set(tvx_filter_shapes ibsd n10d n15d n20d n25d n30d n35d n40d nf40d wded
                      ibsw n05w n08w n10w n15w n20w n25w n30w n35w n40w nf40w wdew)
set(tvx_filter_decimations 2 4 8 16 32)
set(tvx_tables mpm_2.dat epm_2.dat opm_2.dat mpm_4.dat epm_4.dat opm_4.dat
  mpm_4s.dat epm_4s.dat opm_4s.dat mpm_8.dat epm_8.dat opm_8.dat
  mqam_8.dat eqam_8.dat oqam_8.dat mqam_16.dat eqam_16.dat oqam_16.dat
  mqam_32.dat eqam_32.dat oqam_32.dat mqam_64.dat eqam_64.dat oqam_64.dat
  mpm_2a.dat epm_2a.dat opm_2a.dat mpm_4a.dat epm_4a.dat opm_4a.dat
  mpm_2_67.dat epm_2_67.dat opm_2_67.dat
  MQAM_128.DAT MQAM_256.DAT M8QAM_DS.DAT O8QAM_DS.DAT M8QAM_PD.DAT O8QAM_PD.DAT n_DVBS2X.DAT)
foreach(c 0 1 2 3 4 5 7 8 9)   # code-rate digits; there is no 6
  list(APPEND tvx_tables m16apsk${c}.dat e16apsk${c}.dat o16apsk${c}.dat
                         m32apsk${c}.dat e32apsk${c}.dat o32apsk${c}.dat)
endforeach()

set(TVX_SAMPLE_FILTER_FILES)
foreach(shape IN LISTS tvx_filter_shapes)
  foreach(d IN LISTS tvx_filter_decimations)
    list(APPEND TVX_SAMPLE_FILTER_FILES filters/${shape}_${d}.dat)
  endforeach()
endforeach()
set(TVX_SAMPLE_TABLE_FILES)
foreach(name IN LISTS tvx_tables)
  list(APPEND TVX_SAMPLE_TABLE_FILES tables/${name})
endforeach()
list(APPEND TVX_SAMPLE_TABLE_FILES dmpx/table.bin)
if(TVX_SAMPLE_TABLES_NAMES_ONLY)
  return()
endif()

if(NOT OUT_DIR)
  message(FATAL_ERROR "OUT_DIR not set")
endif()
file(MAKE_DIRECTORY "${OUT_DIR}/filters" "${OUT_DIR}/tables" "${OUT_DIR}/dmpx")

# A value in units of 1e-9 as "-0.012345678" (|value| below 1e9).
function(tvx_decimal value out)
  set(sign "")
  if(value LESS 0)
    set(sign "-")
    math(EXPR value "-(${value})")
  endif()
  string(LENGTH "${value}" length)
  math(EXPR zeros "9 - ${length}")
  string(SUBSTRING "000000000" 0 ${zeros} pad)
  set(${out} "${sign}0.${pad}${value}" PARENT_SCOPE)
endfunction()

# One filter file. `permille` sets the cut-off: k / (2D) cycles per sample, k = permille / 1000.
# Tap i lies |x| / 2 samples from the centre, x = 2i - (T - 1); its sinc argument is
# t = k |x| / (2D). sin(pi t) comes from Bhaskara's approximation over each half turn, the
# window is (1 - (x / T)^2)^2, and the gain k / D keeps the peak below one half.
function(tvx_write_filter path d permille)
  math(EXPR taps "8 * ${d}")
  math(EXPR half "${taps} / 2 - 1")
  set(front "")
  set(back "")
  set(negated_front "")
  set(negated_back "")
  foreach(i RANGE 0 ${half})
    math(EXPR x "${taps} - 1 - 2 * ${i}")
    math(EXPR t "${permille} * ${x} * 500 / ${d}")           # t in units of 1e-6
    math(EXPR turn "${t} % 2000000")
    set(sign 1)
    if(turn GREATER_EQUAL 1000000)
      set(sign -1)
      math(EXPR turn "${turn} - 1000000")
    endif()
    math(EXPR v "${turn} / 10")                              # the half turn in units of 1e-5
    math(EXPR p "${v} * (100000 - ${v})")                    # v (1 - v) in units of 1e-10
    math(EXPR sine "${sign} * 16 * ${p} * 100000000 / ((50000000000 - 4 * ${p}) / 10)")
    math(EXPR pi_t "${t} * 3141593 / 1000000")               # pi t in units of 1e-6
    math(EXPR sinc "${sine} * 1000000 / ${pi_t}")            # units of 1e-9
    math(EXPR r2 "${x} * ${x} * 1000000 / (${taps} * ${taps})")
    math(EXPR window "(1000000 - ${r2}) * (1000000 - ${r2}) / 1000000")
    math(EXPR h "${sinc} * ${window} / 1000000 * ${permille} / (1000 * ${d})")
    math(EXPR minus_h "-(${h})")
    tvx_decimal(${h} line)
    tvx_decimal(${minus_h} minus_line)
    string(APPEND front "${line}\n")
    set(back "${line}\n${back}")
    string(APPEND negated_front "${minus_line}\n")
    set(negated_back "${minus_line}\n${negated_back}")
  endforeach()
  file(WRITE "${path}" "${front}${back}${negated_front}${negated_back}")
endfunction()

set(j 0)
foreach(shape IN LISTS tvx_filter_shapes)
  math(EXPR permille "800 + 8 * ${j}")
  foreach(d IN LISTS tvx_filter_decimations)
    tvx_write_filter("${OUT_DIR}/filters/${shape}_${d}.dat" ${d} ${permille})
  endforeach()
  math(EXPR j "${j} + 1")
endforeach()

# The byte sequence (97n + 13) mod 255 + 1: every byte from 1 to 255 once per 255.
set(codes)
foreach(n RANGE 0 764)
  math(EXPR code "(${n} * 97 + 13) % 255 + 1")
  list(APPEND codes ${code})
endforeach()
string(ASCII ${codes} sequence)
set(j 0)
foreach(name IN LISTS tvx_tables)
  math(EXPR offset "${j} * 53 % 255")
  math(EXPR size "256 + 4 * (${j} % 16)")
  string(SUBSTRING "${sequence}" ${offset} ${size} bytes)
  file(WRITE "${OUT_DIR}/tables/${name}" "${bytes}")
  math(EXPR j "${j} + 1")
endforeach()

# The demultiplexer's table: byte (x >> 16) mod 255 + 1 of the linear congruential sequence
# x = (1103515245 x + 12345) mod 2^31 from x = 1.
set(x 1)
set(codes)
foreach(n RANGE 1 3001)
  math(EXPR x "(${x} * 1103515245 + 12345) % 2147483648")
  math(EXPR code "(${x} >> 16) % 255 + 1")
  list(APPEND codes ${code})
endforeach()
string(ASCII ${codes} bytes)
file(WRITE "${OUT_DIR}/dmpx/table.bin" "${bytes}")
