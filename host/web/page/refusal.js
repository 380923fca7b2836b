// What was asked cannot be answered, and why.
export class Refusal extends Error {}
