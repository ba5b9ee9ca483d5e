# Files the tests make themselves, and ways to damage them.

tmp_murv <- function() tempfile(fileext = ".murv")

# Writes `df` and reads it back with the given reading options.
round_trip <- function(df, compress = TRUE, ...) {
  p <- tmp_murv()
  on.exit(unlink(p))
  write_murv(df, p, compress = compress)
  read_murv(p, ...)
}

# The file's bytes with the header's case count, and that of the 64-bit
# case-count record (which the reader prefers when it is larger), set to n.
set_case_count <- function(bytes, n) {
  bytes[81:84] <- writeBin(as.integer(n), raw(), size = 4, endian = "little")
  key <- writeBin(c(7L, 16L, 8L, 2L), raw(), size = 4, endian = "little")
  starts <- which(bytes == key[1])
  at <- starts[vapply(starts, function(i) identical(bytes[i + 0:15], key), logical(1))][1]
  lo <- writeBin(as.integer(n), raw(), size = 4, endian = "little")
  hi <- if (n < 0) as.raw(rep(255, 4)) else as.raw(rep(0, 4))
  bytes[at + 24:31] <- c(lo, hi)
  bytes
}

# A copy of `path` cut `drop` bytes short and/or stating `count` cases.
damaged_copy <- function(path, drop = 0, count = NULL) {
  b <- readBin(path, "raw", file.size(path))
  b <- b[seq_len(length(b) - drop)]
  if (!is.null(count)) b <- set_case_count(b, count)
  q <- tmp_murv()
  writeBin(b, q)
  q
}

# The result of `expr` and the messages of its warnings (muffled).
with_warnings <- function(expr) {
  msgs <- character()
  value <- withCallingHandlers(expr, warning = function(w) {
    msgs <<- c(msgs, conditionMessage(w))
    invokeRestart("muffleWarning")
  })
  list(value = value, warnings = msgs)
}

# Column attributes without those that depend on how a value was stored.
strip <- function(x) {
  attributes(x) <- NULL
  x
}
