# Every kind of column, and every piece of the dictionary, written and read back.

long <- strrep("x", 300)
longest <- strrep("y", 32767)
column_types <- list(
  # name, column written, values read back
  list("double", c(1.5, NA, -Inf, Inf, 1e300, -2.25e-300), c(1.5, NA, -Inf, Inf, 1e300, -2.25e-300)),
  list("integer", c(1L, NA, -7L, .Machine$integer.max, 0L, 3L), c(1, NA, -7, .Machine$integer.max, 0, 3)),
  list("logical", c(TRUE, FALSE, NA, TRUE, TRUE, FALSE), c(1, 0, NA, 1, 1, 0)),
  list("character", c("a", "", NA, "trailing  ", "  lead", "\u00e9t\u00e9"), c("a", "", "", "trailing", "  lead", "\u00e9t\u00e9")),
  list("very long strings", c(long, "b", "", longest, NA, "c"), c(long, "b", "", longest, "", "c")),
  list("Date", as.Date(c("2024-02-29", NA, "1582-10-15", "1970-01-01", "2999-12-31", "1900-03-01")),
       as.Date(c("2024-02-29", NA, "1582-10-15", "1970-01-01", "2999-12-31", "1900-03-01"))),
  list("POSIXct", as.POSIXct(c("2024-02-29 23:59:59", NA, "1600-01-01 00:00:01", "1970-01-01 00:00:00",
                               "2038-01-19 03:14:08", "2000-06-15 12:30:45.25"), tz = "UTC"),
       as.POSIXct(c("2024-02-29 23:59:59", NA, "1600-01-01 00:00:01", "1970-01-01 00:00:00",
                    "2038-01-19 03:14:08", "2000-06-15 12:30:45.25"), tz = "UTC"))
)

test_that("every column type reads back with its values and type, plain and compressed", {
  for (row in column_types) {
    df <- data.frame(x = I(row[[2]]))
    df$x <- row[[2]]
    for (compress in c(FALSE, TRUE)) {
      got <- round_trip(df, compress = compress)$x
      info <- paste(row[[1]], if (compress) "compressed" else "plain")
      expect_equal(class(got), class(row[[3]]), info = info)
      expect_identical(strip(got), strip(row[[3]]), info = info)
      if (inherits(got, "POSIXct")) expect_identical(attr(got, "tzone"), "UTC", info = info)
    }
  }
})

dictionary_rows <- list(
  # what, column with attributes, values read back (user_na = FALSE), with user_na = TRUE
  list("label, labels, format, measure, width",
       structure(c(1, 2, NA), label = "Age group", labels = c(Young = 1, Old = 2), format.murv = "F5.1",
                 measure = "ordinal", display_width = 12L),
       c(1, 2, NA), c(1, 2, NA)),
  list("three missing values",
       structure(c(1, 97, 98, 99, 5), na_values = c(97, 98, 99), format.murv = "F3", measure = "scale",
                 display_width = 5L),
       c(1, NA, NA, NA, 5), c(1, 97, 98, 99, 5)),
  list("a range and a value",
       structure(c(0, 50, 95, -1, 100), na_range = c(90, 99), na_values = -1, format.murv = "F8.2",
                 measure = "scale", display_width = 8L),
       c(0, 50, NA, NA, 100), c(0, 50, 95, -1, 100)),
  list("strings with labels and missing values",
       structure(c("y", "n", "x", ""), labels = c(No = "n", Yes = "y"), na_values = "x", format.murv = "A1",
                 measure = "nominal", display_width = 1L),
       c("y", "n", NA, ""), c("y", "n", "x", "")),
  list("write format, alignment and custom attributes",
       structure(c(3.25, 4), format.murv = "COMMA9.2", write_format.murv = "F10.3", alignment = "center",
                 custom_attributes = c(Source = "survey", Unit = "cm"), measure = "scale", display_width = 10L),
       c(3.25, 4), c(3.25, 4)),
  list("a date format on numbers read without dates",
       structure(c(13e9, NA), format.murv = "ADATE10", measure = "scale", display_width = 10L),
       c(13e9, NA), c(13e9, NA))
)

test_that("labels, missing values and formats read back as written", {
  for (row in dictionary_rows) {
    df <- data.frame(v = seq_along(row[[3]]))
    df$v <- row[[2]]
    for (user_na in c(FALSE, TRUE)) {
      got <- round_trip(df, user_na = user_na, dates = FALSE)$v
      expect_identical(strip(got), if (user_na) row[[4]] else row[[3]], info = row[[1]])
      want <- attributes(row[[2]])
      expect_identical(attributes(got)[names(want)], want, info = row[[1]])
    }
  }
})

test_that("a frame read, written and read again is identical, file metadata included", {
  df <- data.frame(id = 1:4, name = c("ann", "bo", "cy", NA), w = c(1, 2, 0.5, NA),
                   d = as.Date("2020-01-01") + 0:3, stringsAsFactors = FALSE)
  df$grp <- structure(c(1, 2, 1, 9), labels = c(A = 1, B = 2), na_values = 9, label = "Group")
  attr(df, "label") <- "Test file"
  attr(df, "notes") <- c("Made by the tests.", "Second line of the documents")
  attr(df, "murv") <- list(weight = "w", text_info = "made by tests", file_attributes = c(Origin = "tests"),
                           variable_sets = "core= id name\n",
                           mrsets = list(list(name = "$both", label = "Both", dichotomy = TRUE, numeric = TRUE,
                                              category_labels = FALSE, first_variable_label = FALSE,
                                              counted_value = "1", variables = c("id", "w"))),
                           extension_records = list(`12` = structure(charToRaw("guid-1"), unit = 1L),
                                                    `8` = structure(as.raw(1:20), unit = 1L)))
  p1 <- tmp_murv()
  p2 <- tmp_murv()
  write_murv(df, p1)
  first <- read_murv(p1)
  write_murv(first, p2, compress = FALSE)
  second <- read_murv(p2)
  expect_identical(second, first)
  expect_identical(attr(first, "label"), "Test file")
  expect_identical(attr(first, "notes"), attr(df, "notes"))
  m <- attr(first, "murv")
  expect_identical(m$weight, "w")
  expect_identical(m$file_attributes, c(Origin = "tests"))
  expect_identical(m$mrsets[[1]]$variables, c("id", "w"))
  meta <- read_murv_metadata(p2)
  expect_identical(meta$variable_sets, list(core = c("id", "name")))
  expect_identical(meta$data_entry, list(guid = "guid-1", bytes = as.raw(1:20)))
  expect_identical(meta$variables$name, names(df))
  expect_identical(meta$cases, 4L)
})

test_that("names the library refuses are repaired, with a warning that lists each change", {
  df <- data.frame(1, 2, 3, 4, 5, 6)
  names(df) <- c("ok", "1st", "with space", "OK", "and", strrep("n", 70))
  p <- tmp_murv()
  w <- tryCatch(write_murv(df, p), murvio_warning = function(w) w)
  expect_s3_class(w, "murvio_warning")
  expect_length(w$changes, 5)
  got <- suppressWarnings({
    write_murv(df, p)
    names(read_murv(p))
  })
  expect_identical(got, c("ok", "v1st", "with_space", "OK_2", "and_", strrep("n", 64)))
})
