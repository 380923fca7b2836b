// Answers of a report: all of them are in the page. Parts of its time are added up from lines.

export class ReportSource {
  isReport = true;
  #answers;

  constructor(data) {
    this.data = data;
    this.#answers = data.answers;
  }
}
