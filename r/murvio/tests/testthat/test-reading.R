# Selections, chunks and damaged files.

sample_frame <- function(n) {
  data.frame(id = seq_len(n), score = ifelse(seq_len(n) %% 7 == 0, NA, seq_len(n) / 4),
             code = structure(as.double(seq_len(n) %% 3 + 1), labels = c(one = 1, two = 2, three = 3)),
             tag = sprintf("t%05d", seq_len(n)), stringsAsFactors = FALSE)
}

test_that("variables are chosen by name without regard to case or by position, cases by seeking", {
  p <- tmp_murv()
  for (compress in c(FALSE, TRUE)) {
    write_murv(sample_frame(2500), p, compress = compress)
    whole <- read_murv(p)
    selections <- list(
      list(col_select = c("TAG", "id"), cases = NULL, cols = c("tag", "id"), rows = 1:2500),
      list(col_select = c(4, 2), cases = 1001:2000, cols = c("tag", "score"), rows = 1001:2000),
      list(col_select = NULL, cases = 2500, cols = names(whole), rows = 2500),
      list(col_select = "code", cases = 1:1, cols = "code", rows = 1)
    )
    for (s in selections) {
      got <- read_murv(p, col_select = s$col_select, cases = s$cases)
      expect_identical(names(got), s$cols)
      for (col in s$cols) {
        expect_identical(strip(got[[col]]), strip(whole[[col]])[s$rows], info = col)
        expect_identical(attributes(got[[col]]), attributes(whole[[col]]), info = col)
      }
    }
  }
  expect_error(read_murv(p, col_select = "nope"), class = "murvio_error")
  expect_error(read_murv(p, col_select = 9), class = "murvio_error")
  expect_error(read_murv(p, cases = c(3, 5)), "increasing range")
  expect_error(read_murv(p, cases = 2500:2501), "states 2500")
})

test_that("chunked reading gives what a whole read gives, in bounded chunks", {
  p <- tmp_murv()
  for (compress in c(FALSE, TRUE)) {
    write_murv(sample_frame(1000), p, compress = compress)
    for (opts in list(list(), list(labels = TRUE), list(col_select = c("tag", "score"), user_na = TRUE))) {
      whole <- do.call(read_murv, c(list(p), opts))
      for (size in c(7, 333, 1000, 5000)) {
        sizes <- numeric()
        starts <- numeric()
        got <- do.call(read_murv_chunked, c(list(p, function(x, pos) {
          sizes <<- c(sizes, nrow(x))
          starts <<- c(starts, pos)
          x
        }, chunk_size = size), opts))
        expect_identical(got, whole)
        expect_identical(starts, cumsum(c(1, head(sizes, -1))))
        expect_true(all(sizes <= size))
      }
    }
    expect_equal(read_murv_chunked(p, function(x, pos) sum(x$id), chunk_size = 300),
                     c(sum(1:300), sum(301:600), sum(601:900), sum(901:1000)))
    expect_null(read_murv_chunked(p, function(x, pos) NULL))
  }
})

test_that("damaged files give every whole case and the documented warning, or an error", {
  p <- tmp_murv()
  df <- data.frame(x = as.double(1:10), s = rep("abcdefghij", 10))
  # plain: a case takes 24 bytes
  cases <- list(
    list(FALSE, 5, NULL, 9, "the file ends inside case 10 of the 10 it states"),
    list(FALSE, 24, NULL, 9, "the file ends after case 9 of the 10 it states"),
    list(FALSE, 0, 12, 10, "the file ends after case 10 of the 12 it states"),
    list(FALSE, 0, 7, 10, "the file holds 10 cases, more than the 7 it states"),
    list(FALSE, 5, -1, 9, "the file ends inside case 10$"),
    list(FALSE, 0, -1, 10, NULL),
    list(TRUE, 5, NULL, 8, "case 9 of the 10 it states cannot be read"),
    list(TRUE, 0, 12, 10, "the file ends after case 10 of the 12 it states"),
    list(TRUE, 0, 7, 10, "the file holds 10 cases, more than the 7 it states"),
    list(TRUE, 5, -1, 8, "case 9 cannot be read$")
  )
  for (row in cases) {
    write_murv(df, p, compress = row[[1]])
    q <- damaged_copy(p, drop = row[[2]], count = row[[3]])
    info <- paste(row[-4], collapse = " ")
    for (read in list(read_murv, function(f) read_murv_chunked(f, function(x, pos) x, chunk_size = 3))) {
      got <- with_warnings(read(q))
      expect_identical(strip(got$value$x), as.double(seq_len(row[[4]])), info = info)
      if (is.null(row[[5]])) {
        expect_length(got$warnings, 0)
      } else {
        expect_length(got$warnings, 1)
        expect_match(got$warnings, paste0("^", q, ": damaged: ", row[[5]]), info = info)
        expect_no_match(got$warnings, "code 5|BAD_HANDLE", info = info)
      }
    }
    w <- tryCatch(read_murv(q), murvio_warning = function(w) w)
    if (!is.null(row[[5]])) expect_identical(w$file, q)
    if (identical(row[[3]], -1) && row[[2]] == 0) {
      expect_warning(got <- read_murv(q, cases = 9:12), "ends after case 10: cases from 11 on")
      expect_identical(strip(got$x), c(9, 10))
    }
  }
  # Not a system file, no file, a directory: an error of class murvio_error
  # with the library's code and its name.
  junk <- tmp_murv()
  writeBin(as.raw(0:255), junk)
  for (bad in c(junk, tempfile(), tempdir())) {
    e <- tryCatch(read_murv(bad), error = function(e) e)
    expect_s3_class(e, "murvio_error")
    expect_true(e$code %in% c(1L, 6L))
    expect_match(e$name, "^MURV_RC_")
    expect_identical(e$file, bad)
  }
  # The header alone.
  write_murv(df, p, compress = FALSE)
  expect_error(read_murv(damaged_copy(p, drop = file.size(p) - 100)), class = "murvio_error")
})
