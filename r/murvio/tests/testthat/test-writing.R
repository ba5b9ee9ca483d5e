# Where a file is written, and what a failure leaves.

test_that("a failed write leaves no file and an existing file as it was", {
  dir <- tempfile()
  dir.create(dir)
  p <- file.path(dir, "out.murv")
  good <- data.frame(a = 1:3)
  bad <- data.frame(a = 1:3, s = c("a", "b", "c"))
  attr(bad$s, "labels") <- c(Long = "much longer than eight bytes")
  failures <- list(
    list("a value label the library refuses", bad, "murvio_error"),
    list("a column of another kind", data.frame(a = I(list(1, 2, 3))), "error"),
    list("a format that is not one", structure(good, names = "a") |> within(attr(a, "format.murv") <- "Q9"), "error")
  )
  for (f in failures) {
    unlink(p)
    expect_error(write_murv(f[[2]], p), class = f[[3]], info = f[[1]])
    expect_false(file.exists(p), info = f[[1]])
    write_murv(good, p)
    Sys.chmod(p, "0640")
    before <- readBin(p, "raw", file.size(p))
    expect_error(write_murv(f[[2]], p), class = f[[3]], info = f[[1]])
    expect_identical(readBin(p, "raw", file.size(p)), before, info = f[[1]])
    expect_identical(list.files(dir, all.files = TRUE, no.. = TRUE), "out.murv", info = f[[1]])
  }
  # A replaced file keeps its permission bits.
  write_murv(data.frame(b = 1), p)
  expect_identical(as.character(file.mode(p)), "640")
  expect_identical(names(read_murv(p)), "b")
})

test_that("a symbolic link is followed; a directory or a pipe is refused", {
  dir <- tempfile()
  dir.create(dir)
  target <- file.path(dir, "target.murv")
  link <- file.path(dir, "link.murv")
  write_murv(data.frame(a = 1), target)
  file.symlink("target.murv", link)
  write_murv(data.frame(b = 2), link)
  expect_identical(Sys.readlink(link), "target.murv")
  expect_identical(names(read_murv(target)), "b")
  expect_error(write_murv(data.frame(a = 1), dir), "a directory", class = "murvio_error")
  fifo <- file.path(dir, "pipe")
  if (system2("mkfifo", fifo) == 0) {
    expect_error(write_murv(data.frame(a = 1), fifo), "not a regular file", class = "murvio_error")
    expect_error(read_murv(fifo), class = "murvio_error")
  }
  expect_error(write_murv(data.frame(a = 1), file.path(dir, "no", "such", "dir.murv")), class = "murvio_error")
})

test_that("library warnings reach R as murvio_warning with their code", {
  df <- data.frame(a = 1)
  attr(df$a, "label") <- strrep("L", 300)
  w <- tryCatch(write_murv(df, tmp_murv()), murvio_warning = function(w) w)
  expect_identical(w$name, "MURV_RC_VAR_LABEL_CUT")
  expect_identical(w$code, -2L)
  expect_true(all(c(0L, 5L, -5L) %in% murvio_codes()$code))
})
