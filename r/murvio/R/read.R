# Reading: files to data frames, their metadata, and chunks.

# Format type codes and their names, as the file stores them.
.format_names <- c("A", "AHEX", "COMMA", "DOLLAR", "F", "IB", "PIBHEX", "P", "PIB", "PK", "RB", "RBHEX",
                   NA, NA, "Z", "N", "E", NA, NA, "DATE", "TIME", "DATETIME", "ADATE", "JDATE", "DTIME",
                   "WKDAY", "MONTH", "MOYR", "QYR", "WKYR", "PCT", "DOT", "CCA", "CCB", "CCC", "CCD", "CCE",
                   "EDATE", "SDATE")
# Formats whose values are dates (days) and date-times.
.date_formats <- c(20L, 23L, 24L, 28L, 29L, 30L, 38L, 39L)
.datetime_formats <- 22L
# Date values count seconds from 14 October 1582; R counts from 1970.
.epoch_offset <- 12219379200
.measures <- c("unknown", "nominal", "ordinal", "scale")
.alignments <- c("left", "right", "center")

.open <- function(path, call) {
  # Buffers of large columns that R has freed are kept for the next read, up
  # to this many bytes.
  .Call(murvio_cache_limit_, as.double(getOption("murvio.buffer_cache", 2^30)))
  path <- path.expand(as.character(path))
  if (length(path) != 1L || is.na(path)) stop("`path` must be one file name", call. = FALSE)
  list(path = path, xp = .check(.Call(murvio_open_, enc2native(path)), path, call))
}

.close <- function(f) invisible(.Call(murvio_close_, f$xp))

.dict <- function(f, full, call) .check(.Call(murvio_dict_, f$xp, full), f$path, call)

# 0-based positions of the selected variables.
.select <- function(d, col_select, path, call) {
  n <- length(d$names)
  if (is.null(col_select)) return(seq_len(n) - 1L)
  if (is.numeric(col_select)) {
    bad <- col_select[is.na(col_select) | col_select < 1 | col_select > n | col_select != round(col_select)]
    if (length(bad)) {
      stop(.murvio_error(12L, sprintf("no variable at position %s of the %d", paste(bad, collapse = ", "), n), path, call))
    }
    return(as.integer(col_select) - 1L)
  }
  if (is.character(col_select)) {
    # Names are matched as the library matches them: without regard to case.
    i <- match(toupper(trimws(col_select)), toupper(d$names))
    if (anyNA(i)) {
      stop(.murvio_error(12L, paste0("no variable ", paste(col_select[is.na(i)], collapse = ", ")), path, call))
    }
    return(i - 1L)
  }
  stop("`col_select` must be variable names or positions", call. = FALSE)
}

# The user-missing values of a numeric variable that become NA, for the
# compiled reader: c(kind, v1, v2, v3), or NULL.
.na_rule <- function(d, i, user_na) {
  if (user_na || d$types[i] != 0L) return(NULL)
  d$missing[[i]]
}

.missing_attrs <- function(m, numeric) {
  if (is.null(m)) return(list())
  if (numeric) {
    kind <- m[1]
    v <- m[-1]
    if (kind > 0) return(list(na_values = v[seq_len(kind)]))
    if (kind == -2) return(list(na_range = v[1:2]))
    return(list(na_values = v[3], na_range = v[1:2]))
  }
  list(na_values = m$values[seq_len(abs(m$kind))])
}

# Levels for a labelled vector: every labelled value and every value present,
# in the order of the values, named by their labels.
.to_factor <- function(x, labs, levels = "default") {
  keep <- attributes(x)[intersect(names(attributes(x)), c("label", "format.murv", "write_format.murv", "na_values",
                                                        "na_range", "measure", "display_width", "alignment",
                                                        "custom_attributes"))]
  present <- unique(x[!is.na(x)])
  vals <- sort(unique(c(unname(labs), present)))
  txt <- as.character(vals)
  if (levels != "values") {
    m <- match(vals, labs)
    txt[!is.na(m)] <- names(labs)[m[!is.na(m)]]
  }
  f <- factor(txt[match(x, vals)], levels = unique(txt))
  attributes(f) <- c(attributes(f), keep, list(labels = labs))
  f
}

# A column with the dictionary in its attributes.
.column <- function(x, d, i, labels, dates, user_na) {
  numeric <- d$types[i] == 0L
  a <- list()
  if (!is.na(d$labels[i])) a$label <- d$labels[i]
  vl <- d$value_labels[[i]]
  if (!is.null(vl)) a$labels <- setNames(unname(vl), names(vl))
  a$format.murv <- d$formats[i]
  if (d$write_formats[i] != d$formats[i]) a$write_format.murv <- d$write_formats[i]
  a <- c(a, .missing_attrs(d$missing[[i]], numeric))
  if (!numeric && !user_na && !is.null(a$na_values)) x[x %in% a$na_values & !is.na(x)] <- NA_character_
  a$measure <- .measures[d$measure[i] + 1L]
  a$display_width <- d$display_width[i]
  if (d$alignment[i] != if (numeric) 1L else 0L) a$alignment <- .alignments[d$alignment[i] + 1L]
  if (!is.null(d$attributes[[i]])) a$custom_attributes <- d$attributes[[i]]
  if (numeric && dates && d$format_types[i] %in% c(.date_formats, .datetime_formats)) {
    if (d$format_types[i] %in% .date_formats) {
      x <- structure((x - .epoch_offset) / 86400, class = "Date")
    } else {
      x <- structure(x - .epoch_offset, class = c("POSIXct", "POSIXt"), tzone = "UTC")
    }
  }
  x <- .Call(murvio_attrs_, x, a)
  if (labels && !is.null(vl) && !inherits(x, c("Date", "POSIXct"))) x <- .to_factor(x, a$labels)
  x
}

# The file's own metadata that a frame carries (all but the file label and
# documents, which have attributes of their own).
.frame_meta <- function(d) {
  m <- list(weight = d$weight, text_info = d$text_info, file_attributes = d$file_attributes,
            mrsets = d$mrsets, variable_sets = d$variable_sets, date_variables = d$date_variables,
            extension_records = d$extension_records)
  m[!vapply(m, function(x) is.null(x) || length(x) == 0L, logical(1))]
}

.as_frame <- function(cols, n) {
  if (requireNamespace("tibble", quietly = TRUE)) return(tibble::new_tibble(cols, nrow = n))
  structure(cols, class = "data.frame", row.names = .set_row_names(n))
}

.frame <- function(res, d, sel, labels, dates, user_na, layout) {
  i1 <- sel + 1L
  cols <- vector("list", length(i1))
  for (k in seq_along(i1)) cols[[k]] <- .column(res$columns[[k]], d, i1[k], labels, dates, user_na)
  names(cols) <- d$names[i1]
  df <- .as_frame(cols, as.integer(res$n))
  if (!is.null(d$file_label)) attr(df, "label") <- d$file_label
  if (length(layout$documents)) attr(df, "notes") <- layout$documents
  meta <- .frame_meta(d)
  if (length(meta)) attr(df, "murv") <- meta
  df
}

.read_range <- function(f, d, sel, first, count, user_na, expect, parallel = FALSE) {
  na <- lapply(sel + 1L, function(i) .na_rule(d, i, user_na))
  .check(.Call(murvio_read_, f$xp, enc2native(f$path), parallel, as.integer(sel), as.double(first), as.double(count),
               na, as.double(expect)), f$path)
}

# Warns when a read found damage.
.report <- function(f, d, m, code, whole, layout, call) {
  text <- .damage_text(f$path, d$cases, m, code, whole, d$compression != 0L, layout)
  if (!is.null(text)) .damage_warning(text, f$path, d$cases, m, call)
}

#' Read a system file into a data frame
#'
#' @param path The file.
#' @param col_select Variables to read: names (matched without regard to
#'   case) or positions; \code{NULL} reads all.
#' @param cases An increasing range of case numbers, counted from 1 (for
#'   example \code{1001:2000}); the reader goes straight to the first. \code{NULL}
#'   reads every case.
#' @param labels If \code{TRUE}, variables with value labels become factors.
#' @param user_na If \code{TRUE}, user-missing values are kept (they are
#'   listed in the attributes \code{na_values} and \code{na_range} either
#'   way); else they become \code{NA}.
#' @param dates If \code{TRUE}, variables with date formats become
#'   \code{Date} and those with date-time formats \code{POSIXct} (UTC).
#' @return A tibble when the tibble package is installed, else a data frame.
#'   Each column carries the attributes \code{label}, \code{labels},
#'   \code{format.murv}, \code{na_values}, \code{na_range}, \code{measure} and
#'   \code{display_width} (and \code{write_format.murv}, \code{alignment} and
#'   \code{custom_attributes} where they differ from the defaults); the frame
#'   carries \code{label} (the file label), \code{notes} (the documents) and
#'   \code{murv} (the rest of the file's metadata).
#'
#'   A file that holds fewer or more cases than its header states gives a
#'   warning of class \code{murvio_warning} and every whole case; failures
#'   are errors of class \code{murvio_error}.
#' @export
read_murv <- function(path, col_select = NULL, cases = NULL, labels = FALSE, user_na = FALSE, dates = TRUE) {
  call <- sys.call()
  f <- .open(path, call)
  on.exit(.close(f))
  d <- .dict(f, FALSE, call)
  sel <- .select(d, col_select, f$path, call)
  layout <- .Call(murvio_layout_, enc2native(f$path))
  stated <- d$cases
  if (is.null(cases)) {
    first <- 0
    count <- -1
  } else {
    if (!is.numeric(cases) || anyNA(cases) || length(cases) == 0L || any(cases < 1) ||
        (length(cases) > 1L && any(diff(cases) != 1))) {
      stop("`cases` must be an increasing range of case numbers from 1, such as 1001:2000", call. = FALSE)
    }
    if (stated >= 0 && max(cases) > stated) {
      stop(sprintf("`cases` asks for case %s; the file states %s", format(max(cases), scientific = FALSE),
                   format(stated, scientific = FALSE)), call. = FALSE)
    }
    first <- cases[1] - 1
    count <- length(cases)
  }
  expect <- if (stated >= 0) max(0, stated - first) else -1
  res <- .read_range(f, d, sel, first, count, user_na, expect, parallel = TRUE)
  .report(f, d, first + res$n, res$code, is.null(cases), layout, call)
  if (stated < 0 && count >= 0 && res$n < count && res$code == -5L) {
    # A file that does not state its count simply has no more cases.
    warning(.murvio_warning(sprintf("%s: the file ends after case %s: cases from %s on are not in it", f$path,
                                    format(first + res$n, scientific = FALSE),
                                    format(first + res$n + 1, scientific = FALSE)), f$path, call = call))
  }
  .frame(res, d, sel, labels, dates, user_na, layout)
}

.parse_variable_sets <- function(text) {
  if (is.null(text)) return(list())
  lines <- strsplit(text, "\n", fixed = TRUE)[[1]]
  lines <- lines[grepl("=", lines, fixed = TRUE)]
  sets <- lapply(lines, function(l) {
    rest <- trimws(sub("^[^=]*=", "", l))
    if (nzchar(rest)) strsplit(rest, "[[:space:]]+")[[1]] else character()
  })
  names(sets) <- trimws(sub("=.*$", "", lines))
  sets
}

#' Read everything but the cases
#'
#' @param path The file.
#' @return A list: \code{variables} (a data frame of one row per variable:
#'   name, type, width, label, format, write_format, measure, alignment,
#'   display_width, and the list columns value_labels, missing and
#'   attributes), \code{file_label}, \code{documents}, \code{cases} (as the
#'   header states it; -1 when it does not), \code{compression},
#'   \code{case_size}, \code{weight}, \code{product}, \code{timestamp},
#'   \code{release}, \code{text_info}, \code{file_attributes}, \code{mrsets},
#'   \code{variable_sets}, \code{date_variables}, \code{data_entry} and
#'   \code{extension_records} (the records kept as they are, by subtype).
#' @export
read_murv_metadata <- function(path) {
  call <- sys.call()
  f <- .open(path, call)
  on.exit(.close(f))
  d <- .dict(f, TRUE, call)
  layout <- .Call(murvio_layout_, enc2native(f$path))
  n <- length(d$names)
  miss <- vector("list", n)
  has <- which(lengths(d$missing) > 0L)
  for (i in has) miss[[i]] <- .missing_attrs(d$missing[[i]], d$types[i] == 0L)
  vars <- data.frame(name = d$names, type = c("numeric", "string")[1L + (d$types != 0L)],
                     width = d$types, label = d$labels, format = d$formats, write_format = d$write_formats,
                     measure = .measures[d$measure + 1L], alignment = .alignments[d$alignment + 1L],
                     display_width = d$display_width, stringsAsFactors = FALSE)
  vars$value_labels <- d$value_labels
  vars$missing <- miss
  vars$attributes <- d$attributes
  ext <- d$extension_records
  de <- NULL
  if (!is.null(ext[["8"]]) || !is.null(ext[["12"]])) {
    de <- list(guid = if (is.null(ext[["12"]])) "" else rawToChar(ext[["12"]]),
               bytes = if (is.null(ext[["8"]])) raw() else as.vector(ext[["8"]]))
  }
  list(variables = vars, file_label = d$file_label, documents = layout$documents, cases = d$cases,
       compression = d$compression != 0L, case_size = d$case_size, weight = d$weight, product = d$product,
       timestamp = d$timestamp, release = d$release, text_info = d$text_info,
       file_attributes = d$file_attributes, mrsets = d$mrsets,
       variable_sets = .parse_variable_sets(d$variable_sets), date_variables = d$date_variables,
       data_entry = de, extension_records = ext[setdiff(names(ext), c("8", "12"))],
       records_present = d$records_present)
}

#' Read a file in chunks
#'
#' Reads the file a chunk of cases at a time and calls \code{callback(chunk,
#' pos)} for each, \code{pos} the number of the chunk's first case (from 1).
#' Only one chunk is in memory at a time.
#'
#' @param path The file.
#' @param callback A function of the chunk (a data frame as
#'   \code{read_murv} gives it) and its first case's number.
#' @param chunk_size Cases per chunk.
#' @param ... Passed to the reading: \code{col_select}, \code{labels},
#'   \code{user_na}, \code{dates}.
#' @return The callback's results: data frames bound by rows, vectors
#'   combined, anything else in a list; \code{NULL} results are dropped
#'   (as a callback that only looks at the chunks returns nothing).
#' @export
read_murv_chunked <- function(path, callback, chunk_size = 100000, ...) {
  call <- sys.call()
  opts <- list(...)
  bad <- setdiff(names(opts), c("col_select", "labels", "user_na", "dates"))
  if (length(bad)) stop("unknown arguments: ", paste(bad, collapse = ", "), call. = FALSE)
  if (!is.function(callback)) stop("`callback` must be a function", call. = FALSE)
  chunk_size <- as.double(chunk_size)
  if (length(chunk_size) != 1L || is.na(chunk_size) || chunk_size < 1) stop("`chunk_size` must be at least 1", call. = FALSE)
  labels <- isTRUE(opts$labels)
  user_na <- isTRUE(opts$user_na)
  dates <- if (is.null(opts$dates)) TRUE else isTRUE(opts$dates)
  f <- .open(path, call)
  on.exit(.close(f))
  d <- .dict(f, FALSE, call)
  sel <- .select(d, opts$col_select, f$path, call)
  layout <- .Call(murvio_layout_, enc2native(f$path))
  stated <- d$cases
  results <- list()
  pos <- 0
  first <- 0
  repeat {
    expect <- if (stated >= 0) min(chunk_size, max(0, stated - pos)) else chunk_size
    res <- .read_range(f, d, sel, first, chunk_size, user_na, expect)
    first <- -1
    n <- res$n
    if (n > 0) {
      chunk <- .frame(res, d, sel, labels, dates, user_na, layout)
      res <- list(n = n, code = res$code)
      out <- callback(chunk, pos + 1)
      rm(chunk)
      if (!is.null(out)) results[[length(results) + 1L]] <- out
      pos <- pos + n
    }
    if (res$code != 0L || n < chunk_size) break
  }
  .report(f, d, pos, res$code, TRUE, layout, call)
  .combine(results)
}

.combine <- function(results) {
  if (!length(results)) return(NULL)
  if (all(vapply(results, is.data.frame, logical(1)))) return(.bind_frames(results))
  if (all(vapply(results, function(x) is.atomic(x) && is.null(dim(x)), logical(1)))) return(do.call(c, results))
  results
}

# Frames bound by rows, each column keeping the attributes of the first
# frame's (factors take the levels of all).
.bind_frames <- function(frames) {
  first <- frames[[1]]
  cols <- lapply(seq_along(first), function(j) {
    parts <- lapply(frames, `[[`, j)
    x1 <- parts[[1]]
    a <- attributes(x1)
    if (is.factor(x1)) {
      lev <- unique(unlist(lapply(parts, levels)))
      v <- match(unlist(lapply(parts, as.character)), lev)
      a$levels <- lev
    } else {
      v <- unlist(lapply(parts, function(p) {
        attributes(p) <- NULL
        p
      }))
    }
    attributes(v) <- a
    v
  })
  names(cols) <- names(first)
  n <- sum(vapply(frames, nrow, integer(1)))
  df <- if (inherits(first, "tbl_df")) .as_frame(cols, n) else structure(cols, class = "data.frame", row.names = .set_row_names(n))
  for (a in c("label", "notes", "murv")) attr(df, a) <- attr(first, a)
  df
}
