# The R package against the C library's bulk calls and R's own readers,
# measured in one run.
#
#   R_LIBS=build/release/r/library Rscript bench/r_bench.R [--cases=N] [--vars=N] [--wide=N] [--chunk=N] [--reps=N] [--dir=DIR]
#
# Every figure is a ratio: read_murv against the bulk read (murvWholeCaseIn
# into one record) of the same file, plain and compressed; against readRDS of
# the same frame saved by saveRDS with its defaults and data.table::fread of
# it as CSV; write_murv against the bulk write (murvWholeCaseOut); the peak
# memory of read_murv_chunked against its bound (twice one chunk plus 64 MiB);
# read_murv_metadata of a file of --wide variables against murvOpenRead alone.
# Times are the best of --reps rounds, the two sides of a ratio run
# alternately so that a burst of load on the machine does not fall on one
# side only. Elapsed times are compared; the CPU times are shown beside them.

suppressPackageStartupMessages(library(murvio))

args <- commandArgs(trailingOnly = TRUE)
opt <- list(cases = 1e6, vars = 100, wide = 1e6, chunk = 1e5, reps = 3,
            dir = if (dir.exists("/dev/shm")) "/dev/shm" else tempdir())
for (a in args) {
  kv <- regmatches(a, regexec("^--([a-z]+)=(.*)$", a))[[1]]
  if (length(kv) != 3 || !(kv[2] %in% names(opt))) stop("unknown argument: ", a)
  opt[[kv[2]]] <- if (kv[2] == "dir") kv[3] else as.numeric(kv[3])
}
tmp <- tempfile("r_bench", tmpdir = opt$dir)
dir.create(tmp)
# Removed when R exits (a script has no function whose exit could do it).
reg.finalizer(environment(), function(e) unlink(tmp, recursive = TRUE), onexit = TRUE)
bulk_read <- function(path) .Call(murvio:::murvio_bulk_read_, path)
bulk_write <- function(path, compress) .Call(murvio:::murvio_bulk_write_, path, opt$cases, opt$vars, compress)

timed <- function(f) {
  gc(FALSE)
  t <- system.time(f())
  c(elapsed = t[["elapsed"]], cpu = t[["user.self"]] + t[["sys.self"]])
}
paired <- function(a, b) {
  ta <- tb <- c(elapsed = Inf, cpu = Inf)
  for (i in seq_len(opt$reps)) {
    ta <- pmin(ta, timed(a))
    tb <- pmin(tb, timed(b))
  }
  list(a = ta, b = tb)
}
results <- logical()
report <- function(name, t, goal) {
  ratio <- t$a[["elapsed"]] / t$b[["elapsed"]]
  ok <- ratio >= goal
  results <<- c(results, ok)
  cat(sprintf("  %-58s %6.2f   goal >= %-4s %-8s (%.2f s against %.2f s; cpu ratio %.2f)\n", name, ratio, goal,
              if (ok) "met" else "NOT MET", t$a[["elapsed"]], t$b[["elapsed"]], t$a[["cpu"]] / t$b[["cpu"]]))
}

cat(sprintf("r_bench: %d cases x %d numeric variables, best of %d\n", opt$cases, opt$vars, opt$reps))
for (compress in c(FALSE, TRUE)) {
  kind <- if (compress) "compressed" else "plain"
  path <- file.path(tmp, paste0(kind, ".murv"))
  bulk_write(path, compress)
  report(sprintf("read_murv %s, against the bulk read", kind), paired(function() bulk_read(path), function() read_murv(path)), 0.5)
  df <- read_murv(path)
  out <- file.path(tmp, "out.murv")
  report(sprintf("write_murv %s, against the bulk write", kind),
         paired(function() bulk_write(paste0(out, ".c"), compress), function() write_murv(df, out, compress = compress)), 0.5)
  unlink(c(out, paste0(out, ".c")))
  if (!compress) {
    rds <- file.path(tmp, "frame.rds")
    saveRDS(df, rds)
    report("read_murv plain, against readRDS (saveRDS defaults)", paired(function() readRDS(rds), function() read_murv(path)), 1)
    unlink(rds)
    if (requireNamespace("data.table", quietly = TRUE)) {
      csv <- file.path(tmp, "frame.csv")
      data.table::fwrite(df, csv)
      report("read_murv plain, against data.table::fread of the CSV",
             paired(function() data.table::fread(csv, showProgress = FALSE), function() read_murv(path)), 3)
      unlink(csv)
    } else {
      cat("  data.table is not installed: no comparison with fread\n")
    }
  }
  rm(df)
  # Chunked reading in a process of its own, so that its peak memory is its own.
  script <- file.path(tmp, "chunked.R")
  writeLines(c(
    "suppressPackageStartupMessages(library(murvio))",
    "hwm <- function(key) as.numeric(sub('[^0-9]*([0-9]+).*', '\\\\1', grep(key, readLines('/proc/self/status'), value = TRUE))) * 1024",
    "base <- hwm('^VmRSS')",
    sprintf("n <- read_murv_chunked('%s', function(x, pos) nrow(x), chunk_size = %d)", path, as.integer(opt$chunk)),
    "cat(hwm('^VmHWM') - base, sum(n), '\\n')"), script)
  got <- as.numeric(strsplit(trimws(system2(file.path(R.home("bin"), "Rscript"), script, stdout = TRUE)), " ")[[1]])
  bound <- 2 * opt$chunk * opt$vars * 8 + 64 * 2^20
  ok <- got[1] <= bound && got[2] == opt$cases
  results <- c(results, ok)
  cat(sprintf("  %-58s %6.2f   goal <= 1    %-8s (%.0f MiB, bound %.0f MiB)\n",
              sprintf("read_murv_chunked %s, peak memory against its bound", kind), got[1] / bound,
              if (ok) "met" else "NOT MET", got[1] / 2^20, bound / 2^20))
  unlink(path)
}

wide <- file.path(tmp, "wide.murv")
invisible(.Call(murvio:::murvio_bulk_write_, wide, 1, opt$wide, FALSE))
open_only <- function() murvio:::.close(murvio:::.open(wide, NULL))
t <- paired(function() read_murv_metadata(wide), open_only)
ratio <- t$a[["elapsed"]] / t$b[["elapsed"]]
ok <- ratio <= 2
results <- c(results, ok)
cat(sprintf("r_bench: a file of %d variables\n", opt$wide))
cat(sprintf("  %-58s %6.2f   goal <= 2    %-8s (%.2f s against %.2f s)\n", "read_murv_metadata, against murvOpenRead alone",
            ratio, if (ok) "met" else "NOT MET", t$a[["elapsed"]], t$b[["elapsed"]]))
cat(sprintf("r_bench: %d of %d goals met\n", sum(results), length(results)))
