# Factors and dates.

test_that("labelled values become factors in the order of their values", {
  x <- structure(c(3, 1, NA, 2, 7), labels = c(High = 3, Low = 1, Mid = 2), label = "Level")
  rows <- list(
    # what, labels argument of as_factor, levels, values as text
    list("default", "default", c("Low", "Mid", "High", "7"), c("High", "Low", NA, "Mid", "7")),
    list("values", "values", c("1", "2", "3", "7"), c("3", "1", NA, "2", "7"))
  )
  for (row in rows) {
    f <- as_factor(x, levels = row[[2]])
    expect_identical(levels(f), row[[3]], info = row[[1]])
    expect_identical(as.character(f), row[[4]], info = row[[1]])
    expect_identical(attr(f, "label"), "Level")
  }
  s <- as_factor(structure(c("b", "a", ""), labels = c(Alpha = "a", Beta = "b")))
  expect_identical(levels(s), c("", "Alpha", "Beta"))
  # labels = TRUE on reading, and a factor made from a file's labels goes back to its values.
  p <- tmp_murv()
  df <- data.frame(x = 1:5)
  df$x <- x
  write_murv(df, p)
  f <- read_murv(p, labels = TRUE)
  expect_identical(f$x, as_factor(read_murv(p)$x))
  write_murv(f, p)
  expect_identical(strip(read_murv(p)$x), c(3, 1, NA, 2, 7))
  # A factor of R's own becomes codes 1..n labelled with its levels.
  df <- data.frame(g = factor(c("b", "a", NA, "b"), levels = c("b", "a")))
  back <- round_trip(df)
  expect_identical(strip(back$g), c(1, 2, NA, 1))
  expect_identical(attr(back$g, "labels"), c(b = 1, a = 2))
  expect_identical(attr(back$g, "measure"), "nominal")
  expect_identical(as_factor(back)$g, factor(c("b", "a", NA, "b"), levels = c("b", "a")) |>
                     structure(format.murv = "F8.2", measure = "nominal", display_width = 8L, labels = c(b = 1, a = 2)))
})

test_that("date and date-time formats become Date and POSIXct, or stay numbers", {
  secs <- c(13e9, 13e9 + 86400 * 365.25 * 400, NA)
  rows <- list(
    list("DATE11", "Date"), list("ADATE10", "Date"), list("EDATE10", "Date"), list("SDATE10", "Date"),
    list("JDATE7", "Date"), list("MOYR8", "Date"), list("QYR8", "Date"), list("WKYR10", "Date"),
    list("DATETIME20", "POSIXct"), list("TIME8", "numeric"), list("F8.2", "numeric")
  )
  p <- tmp_murv()
  for (row in rows) {
    df <- data.frame(v = 1:3)
    df$v <- structure(secs, format.murv = row[[1]])
    write_murv(df, p)
    got <- read_murv(p)$v
    expect_true(inherits(got, row[[2]]), info = row[[1]])
    expect_identical(attr(got, "format.murv"), row[[1]])
    back <- switch(row[[2]], Date = as.double(got) * 86400, POSIXct = as.double(got), numeric = strip(got) - 12219379200)
    expect_equal(back + 12219379200, secs, info = row[[1]])
    expect_identical(strip(read_murv(p, dates = FALSE)$v), secs)
  }
})
